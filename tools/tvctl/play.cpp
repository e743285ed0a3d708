#include "play.h"

#include "doctor/checks.h"
#include "failure.h"
#include "interruption.h"

#include <host/environment.h>
#include <host/printable.h>
#include <host/shell-client.h>
#include <tvservice/results.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <iostream>
#include <nlohmann/json.hpp>
#include <optional>
#include <thread>

namespace tvctl {
namespace {

using Clock = std::chrono::steady_clock;
using Json = nlohmann::ordered_json;
using Milliseconds = std::chrono::milliseconds;

constexpr Milliseconds firstPause{1}, longestPause{50};

struct Arguments {
    Options options;
    bool wait = true;
    std::vector<std::string> words; // the command and its arguments
};

// The request as the receiver knows it now.
Json ask(host::ShellClient& client, const std::vector<std::string>& words, Milliseconds timeout) {
    const auto reply = client.run(words, true, timeout);
    if (reply.status < 0) throw CommandFailure(reply);
    return Json::parse(reply.output);
}

bool isPending(const Json& request) {
    const auto& state = request.at("state");
    return state == "queued" || state == "sent";
}

std::string linesOf(const Json& request) {
    std::string text;
    for (const auto& line : request.at("lines"))
        text += (text.empty() ? "" : "\n") + host::printable(line.get<std::string>());
    return text;
}

// Asks again and again, soon at first: most answers take less than a millisecond.
Json waitForOutcome(host::ShellClient& client, const std::string& id, const Options& options) {
    const auto begin = Clock::now();
    for (auto pause = firstPause;; pause = std::min(2 * pause, longestPause)) {
        Json request = ask(client, {"request", id}, options.timeoutOr(actionTimeout)).at(0);
        const bool timedOut = options.timeout && Clock::now() - begin >= *options.timeout;
        if (!isPending(request) || timedOut) return request;
        std::this_thread::sleep_for(pause);
    }
}

// Adds what a service's shell says about terminals that do not show what was asked for.
void addReasons(Json& terminals, const Json& failures) {
    for (const Json& failure : failures) {
        const std::string name =
            std::to_string(failure.at("type").get<int>()) + ':' + std::to_string(failure.at("id").get<int>());
        for (Json& terminal : terminals)
            if (terminal.at("terminal") == name && terminal.at("result") == failure.at("result"))
                terminal["reason"] = failure.at("reason").get<std::string>();
    }
}

// Adds why terminals do not show what was asked for, as far as a service that runs here knows.
void explain(Json& request) {
    const auto failed = [](const Json& terminal) {
        return terminal.at("result").is_number() && terminal["result"] > tvservice::result::superseded;
    };
    Json& terminals = request.at("terminals");
    if (std::ranges::none_of(terminals, failed)) return;
    constexpr Milliseconds longest{1000}; // the outcome is known already
    for (const std::string& shell : doctor::shellsIn(host::runtimeDirectoryPath())) {
        try {
            host::ShellClient client;
            client.connect(shell);
            addReasons(terminals, ask(client, {"failures", request.at("request").get<std::string>()}, longest));
        } catch (const std::exception&) { // not a service
        }
    }
    for (const Json& terminal : terminals)
        if (terminal.contains("reason"))
            request["lines"].push_back(terminal.at("terminal").get<std::string>() + ": " +
                                       terminal["reason"].get<std::string>());
}

// Prints the outcome; on standard output when the request was carried out, so that scripts see nothing else there.
int print(const Json& request, const Options& options) {
    const bool isGivenUp = request.at("state") == "given up";
    const bool isDone = !isGivenUp && !isPending(request) &&
                        std::all_of(request.at("terminals").begin(), request.at("terminals").end(),
                                    [](const Json& terminal) { return terminal.at("result") == 0; });
    if (isPending(request))
        return report(std::cerr, options.json, {exitTimedOut, -ETIMEDOUT},
                      "timed out; the request goes on: " + linesOf(request));
    if (options.json)
        std::cout << request.dump(-1, ' ', false, Json::error_handler_t::replace) << '\n';
    else if (isDone && !options.quiet)
        std::cout << linesOf(request) << '\n';
    else if (!isDone)
        std::cerr << linesOf(request) << '\n';
    if (const int exitCode = finish(std::cout, std::cerr, options.json); exitCode != exitDone) return exitCode;
    return isDone ? exitDone : isGivenUp ? exitGivenUp : exitNotShown;
}

int run(const Arguments& arguments) {
    const Options& options = arguments.options;
    try {
        host::ShellClient client;
        client.connect(host::shellEndpointOf(options.target));
        const Json queued = ask(client, arguments.words, options.timeoutOr(actionTimeout));
        // Another application's command "play" may not name its request.
        if (!arguments.wait || !queued.contains("request")) {
            if (options.json)
                std::cout << queued.dump() << '\n';
            else if (!options.quiet)
                std::cout << "queued " << queued.value("queued", 0) << " (request "
                          << host::printable(queued.value("request", std::string("without an id"))) << ")\n";
            return finish(std::cout, std::cerr, options.json);
        }
        const auto id = queued.at("request").get<std::string>();
        const WhenInterrupted note("tvctl: interrupted; request " + host::printable(id) + " goes on\n");
        Json request = waitForOutcome(client, id, options);
        explain(request);
        return print(request, options);
    } catch (const CommandFailure& failure) {
        return report(std::cerr, options.json, failure.failure(), failure.what());
    } catch (const host::ShellError& error) {
        return report(std::cerr, options.json, error);
    } catch (const Json::exception& error) {
        return report(std::cerr, options.json, {exitBadData, -EBADMSG},
                      std::string("the answer is malformed: ") + error.what());
    } catch (const std::exception& error) {
        return report(std::cerr, options.json, {exitNotAvailable, -ENOTCONN}, error.what());
    }
}

void addCommonOptions(CLI::App& app, Arguments& arguments) {
    addOptions(app, arguments.options, noTimeout);
    app.add_flag_callback(
        "--no-wait", [&arguments] { arguments.wait = false; }, "Do not wait for the result; print the request's id");
    app.footer(
        "Exit codes: 0 done, 7 the service refused it or a newer request replaced it, 8 given up because a service\n"
        "did not answer, 4 --timeout ended the waiting. The request goes on when the waiting ends early. Without\n"
        "--timeout, the waiting ends with the request.");
}

} // namespace

int runPlay(const Options& given, const std::vector<std::string>& words) {
    Arguments arguments{given, true, {"play"}};
    std::string terminals, uri, uuid;
    CLI::App app("Shows something on terminals and waits for the result.", "tvctl play");
    addCommonOptions(app, arguments);
    app.add_option("TERMINAL", terminals, "One or more terminals TYPE:ID, separated by commas")->required();
    app.add_option("URI", uri, "What to show, such as dvb://1.1.1")->required();
    app.add_option("UUID", uuid, "The identity of the source");
    if (const auto exitCode = parseArguments(app, words)) return *exitCode;
    arguments.words.insert(arguments.words.end(), {terminals, uri});
    if (!uuid.empty()) arguments.words.push_back(uuid);
    return run(arguments);
}

int runStop(const Options& given, const std::vector<std::string>& words) {
    Arguments arguments{given, true, {"stop"}};
    std::string terminals;
    CLI::App app("Stops what terminals show and waits for the result.", "tvctl stop");
    addCommonOptions(app, arguments);
    app.add_option("TERMINAL", terminals, "One or more terminals TYPE:ID, separated by commas")->required();
    if (const auto exitCode = parseArguments(app, words)) return *exitCode;
    arguments.words.push_back(terminals);
    return run(arguments);
}

} // namespace tvctl
