#include "options.h"

#include "failure.h"
#include "system-receiver.h"

#include <host/printable.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <iostream>
#include <iterator>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace tvctl {
namespace {

// CLI::Range would accept "nan".
std::string checkSeconds(const std::string& text) {
    double seconds = 0;
    const bool number = CLI::detail::lexical_cast(text, seconds);
    return number && seconds >= 0.001 && seconds <= 86400 ? "" : text + " is not a number from 0.001 to 86400";
}

// The name becomes part of a path, which must not leave the folder of the shells.
std::string checkProcess(const std::string& name) {
    return !name.empty() && name.find('/') == std::string::npos ? "" : "'" + name + "' is not the name of a process";
}

void useSystem(const Options& options) {
    const auto fail = [&](Failure failure, const std::string& why) {
        throw CLI::RuntimeError(report(std::cerr, options.json, failure, "--system: " + why));
    };
    if (options.inShell)
        fail({exitUsage, -EINVAL}, "the shell stays with one receiver; begin it with: tvctl --system shell");
    try {
        useSystemReceiver();
    } catch (const std::system_error& error) {
        fail({exitRefused, -EACCES}, error.what());
    } catch (const std::runtime_error& error) {
        fail({exitNotAvailable, -ENOTCONN}, error.what());
    }
}

} // namespace

void addOptions(CLI::App& app, Options& options, const char* shownTimeout) {
    app.add_option_function<std::string>(
           "--target",
           [&options](const std::string& name) {
               options.target = name;
               options.targetGiven = true;
           },
           "The process to send the command to")
        ->default_str(options.target)
        ->check(checkProcess);
    app.add_flag("--json", options.json, "Print the outcome as JSON"); // before the options whose errors it formats
    app.add_flag_callback(
        "--system", [&options] { useSystem(options); }, "Use the receiver that systemd runs for the whole machine");
    app.add_flag("--quiet", options.quiet, "Print errors only");
    app.add_option_function<double>(
           "--timeout",
           [&options](double seconds) {
               options.timeout = std::chrono::milliseconds(static_cast<long>(seconds * 1000));
           },
           "Seconds to wait for an answer")
        ->default_str(shownTimeout)
        ->check(checkSeconds);
}

void escapeFailures(CLI::App& app) {
    app.failure_message([](const CLI::App* failed, const CLI::Error& error) {
        return host::printable(CLI::FailureMessage::simple(failed, error), "\n");
    });
}

int exitCodeAfter(const CLI::App& app, const CLI::ParseError& error) {
    const int code = app.exit(error);
    return code == 0 || dynamic_cast<const CLI::RuntimeError*>(&error) ? code : exitUsage;
}

std::optional<int> parseArguments(CLI::App& app, const std::vector<std::string>& arguments) {
    escapeFailures(app);
    try {
        // The parser takes its arguments from the end of the list.
        app.parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));
    } catch (const CLI::ParseError& error) {
        return exitCodeAfter(app, error);
    }
    return std::nullopt;
}

std::optional<int> takeOptions(std::vector<std::string>& arguments, Options& options) {
    std::vector<std::string> own, others;
    for (auto next = arguments.begin(); next != arguments.end(); ++next) {
        if (*next == "--") {
            others.insert(others.end(), std::next(next), arguments.end());
            break;
        }
        const std::string name = next->substr(0, next->find('='));
        const bool takesValue = name == "--target" || name == "--timeout";
        if (!takesValue && *next != "--system" && *next != "--json" && *next != "--quiet") {
            others.push_back(*next);
            continue;
        }
        own.push_back(*next);
        if (takesValue && name == *next && std::next(next) != arguments.end()) own.push_back(*++next);
    }
    arguments = std::move(others);
    if (own.empty()) return std::nullopt;
    CLI::App app;
    addOptions(app, options);
    return parseArguments(app, own);
}

} // namespace tvctl
