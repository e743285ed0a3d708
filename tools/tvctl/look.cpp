#include "look.h"

#include "doctor/checks.h"
#include "failure.h"

#include <host/environment.h>
#include <host/printable.h>
#include <host/shell-client.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <iostream>
#include <media/snapshot.h>
#include <nlohmann/json.hpp>
#include <string_view>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace tvctl {
namespace {

using Json = nlohmann::ordered_json;

// Talks to the service that shows a terminal: the process that --target names, or any of those that run here.
class Looker {
public:
    explicit Looker(const Options& options) : options_(options) {}

    // Runs a command of a service's shell. Throws CommandFailure when no process can answer, with the answer of one
    // that has the command.
    Json ask(const std::vector<std::string>& words) {
        if (client_.isConnected()) return answerTo(words);
        const auto shells = options_.targetGiven ? std::vector{host::shellEndpointOf(options_.target)}
                                                 : doctor::shellsIn(host::runtimeDirectoryPath());
        std::optional<CommandFailure> failure;
        for (const std::string& shell : shells) {
            try {
                client_.connect(shell);
                return answerTo(words);
            } catch (const CommandFailure& problem) {
                const bool hasCommand = problem.failure().status != -ENOSYS;
                if (!failure || hasCommand) failure.emplace(problem);
            } catch (const host::ShellError&) {
                if (options_.targetGiven) throw;
            }
            client_.disconnect();
        }
        if (failure) throw CommandFailure(*failure);
        throw host::ShellError(host::ShellError::Kind::NotAvailable, "no process of a receiver runs here");
    }

private:
    Json answerTo(const std::vector<std::string>& words) {
        const auto reply = client_.run(words, true, options_.timeoutOr(actionTimeout));
        if (reply.status < 0) throw CommandFailure(reply);
        return Json::parse(reply.output);
    }

    const Options& options_;
    host::ShellClient client_;
};

void writeAll(int file, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t written = ::write(file, bytes.data(), bytes.size());
        if (written < 0 && errno != EINTR) throw std::system_error(errno, std::generic_category());
        if (written > 0) bytes.remove_prefix(static_cast<std::size_t>(written));
    }
}

// Writes a file that is there whole or not at all; into a device or a pipe, which must not be replaced, as it comes.
// Throws std::system_error.
void write(const std::string& path, std::string_view bytes) {
    struct stat status {};
    const bool isSpecial = ::stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode);
    std::string part = isSpecial ? path : path + ".XXXXXX";
    const int file = isSpecial ? ::open(path.c_str(), O_WRONLY | O_CLOEXEC) : ::mkostemp(part.data(), O_CLOEXEC);
    try {
        if (file < 0) throw std::system_error(errno, std::generic_category());
        writeAll(file, bytes);
        constexpr mode_t readable = 0644;
        const mode_t mask = ::umask(0);
        ::umask(mask);
        if (!isSpecial &&
            (::fchmod(file, readable & ~mask) != 0 || ::fsync(file) != 0 || ::rename(part.c_str(), path.c_str()) != 0))
            throw std::system_error(errno, std::generic_category());
        ::close(file);
    } catch (const std::system_error& error) {
        if (file >= 0) ::close(file);
        if (file >= 0 && !isSpecial) ::unlink(part.c_str());
        throw std::system_error(error.code(), path);
    }
}

// Returns the exit code, after whatever went wrong has been reported.
template <class Action> int reporting(const Options& options, const Action& action) {
    try {
        action();
        return finish(std::cout, std::cerr, options.json);
    } catch (const CommandFailure& failure) {
        return report(std::cerr, options.json, failure.failure(), failure.what());
    } catch (const host::ShellError& error) {
        return report(std::cerr, options.json, error);
    } catch (const std::system_error& error) {
        return report(std::cerr, options.json, {exitFailed, -error.code().value()}, error.what());
    } catch (const std::exception& error) {
        return report(std::cerr, options.json, {exitBadData, -EBADMSG},
                      std::string("the answer is malformed: ") + error.what());
    }
}

} // namespace

int runScreenshot(const Options& given, const std::vector<std::string>& words) {
    Options options = given;
    std::string terminal, file;
    CLI::App app(
        "Writes the picture on a terminal to a file, as PNG. The services need a media engine with pictures:\n"
        "media.engine = \"gstreamer\".",
        "tvctl screenshot");
    addOptions(app, options, "10");
    app.add_option("TERMINAL", terminal, "The terminal, TYPE:ID")->required();
    app.add_option("FILE", file, "The file to write, or to replace")->required();
    if (const auto exitCode = parseArguments(app, words)) return *exitCode;
    return reporting(options, [&] {
        Looker looker(options);
        const std::string picture =
            media::pictureOf(terminal, [&](const std::vector<std::string>& command) { return looker.ask(command); });
        write(file, picture);
        if (options.json)
            std::cout << toText({{"file", file}, {"bytes", picture.size()}}) << '\n';
        else if (!options.quiet)
            std::cout << host::printable(file) << ": " << picture.size() << " bytes\n";
    });
}

int runLevel(const Options& given, const std::vector<std::string>& words) {
    Options options = given;
    std::string terminal;
    CLI::App app(
        "Prints how loud a terminal is, in dB below full scale, and its loudest tone. The services need a media\n"
        "engine with sound: media.engine = \"gstreamer\".",
        "tvctl level");
    addOptions(app, options, "10");
    app.add_option("TERMINAL", terminal, "The terminal, TYPE:ID")->required();
    if (const auto exitCode = parseArguments(app, words)) return *exitCode;
    return reporting(options, [&] {
        const Json sound = Looker(options).ask({"level", terminal});
        if (options.json)
            std::cout << sound.dump() << '\n';
        else
            std::cout << terminal << ' ' << sound.at("level").get<double>() << " dB, " << sound.at("pitch").get<int>()
                      << " Hz\n";
    });
}

} // namespace tvctl
