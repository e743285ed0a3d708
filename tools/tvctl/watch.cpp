#include "watch.h"

#include "failure.h"
#include "message-names.h"

#include <host/environment.h>
#include <host/printable.h>
#include <host/shell-client.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <iostream>
#include <nlohmann/json.hpp>
#include <thread>
#include <utility>

namespace tvctl {
namespace {

using Clock = std::chrono::steady_clock;
using Json = nlohmann::ordered_json;

constexpr std::chrono::milliseconds pollInterval{100};

// Fetches the receiver's notifications through its shell: each poll returns those since the previous one.
class Feed {
public:
    explicit Feed(const Options& options) : options_(options) {}

    // Connects, and remembers the newest notification: the next poll returns those after it.
    void start(std::chrono::milliseconds timeout) {
        client_.connect(host::shellEndpointOf(options_.target));
        for (const auto& notification : ask({"notifications"}, timeout)) remember(notification);
    }

    // Returns the new notifications, oldest first; more may be available at once. Requests the last one again: when it
    // has changed or is gone, the receiver has restarted its numbering, and all its notifications are new.
    std::vector<Json> poll(std::chrono::milliseconds timeout) {
        auto list = ask({"notifications", std::to_string(number_ == 0 ? 0 : number_ - 1)}, timeout);
        if (number_ > 0) {
            const bool restarted = list.empty() || numberOf(list.front()) < number_ ||
                                   (numberOf(list.front()) == number_ && timeOf(list.front()) != time_);
            if (restarted) {
                number_ = 0;
                list = ask({"notifications", "0"}, timeout);
            } else if (numberOf(list.front()) == number_) {
                list.erase(list.begin());
            }
        }
        if (!list.empty()) missed_ += numberOf(list.front()) - number_ - 1;
        for (const auto& notification : list) remember(notification);
        return list;
    }

    // The number of notifications that the receiver dropped before they were requested, since the last call.
    std::uint64_t takeMissed() { return std::exchange(missed_, 0); }

private:
    // Limits the depth: copying and printing JSON takes stack for each level.
    static std::vector<Json> listOf(const std::string& text) {
        constexpr int deepest = 32; // notifications have fewer than ten levels
        const auto checkDepth = [](int depth, Json::parse_event_t, Json&) {
            if (depth <= deepest) return true;
            throw host::ShellError(host::ShellError::Kind::BadData, "the list of notifications is nested more than " +
                                                                        std::to_string(deepest) + " levels deep");
        };
        return Json::parse(text, checkDepth).get<std::vector<Json>>();
    }

    static std::uint64_t numberOf(const Json& notification) { return notification.at("number").get<std::uint64_t>(); }
    static std::string timeOf(const Json& notification) { return notification.at("time").get<std::string>(); }

    void remember(const Json& notification) {
        number_ = numberOf(notification);
        time_ = timeOf(notification);
    }

    std::vector<Json> ask(const std::vector<std::string>& words, std::chrono::milliseconds timeout) {
        const auto reply = client_.run(words, true, timeout);
        if (reply.status < 0) throw CommandFailure(reply);
        return listOf(reply.output);
    }

    const Options& options_;
    host::ShellClient client_;
    std::uint64_t number_ = 0; // of the last notification seen; 0: none
    std::string time_;         // of that one
    std::uint64_t missed_ = 0;
};

std::string lineOf(const Json& notification, bool json) {
    const auto textOf = [](const Json& value) { return value.dump(-1, ' ', false, Json::error_handler_t::replace); };
    if (json) return textOf(notification);
    // The receiver does not keep arguments that are too long for an answer.
    const auto omitted = notification.find("omittedBytes");
    const std::string arguments = omitted == notification.end() ? textOf(notification.at("arguments"))
                                                                : "(" + textOf(*omitted) + " bytes left out)";
    // JSON does not escape all terminal control characters.
    return host::printable(notification.at("time").get<std::string>() + " " +
                           notification.at("message").get<std::string>() + " " + arguments);
}

struct TimedOut {};

// The optional time limit of the whole run.
class Deadline {
public:
    explicit Deadline(const Options& options)
        : end_(options.timeout ? std::optional(Clock::now() + *options.timeout) : std::nullopt) {}

    // The time limit of the next answer, at most `otherwise` if the run has none. Throws TimedOut when there is no time
    // left.
    std::chrono::milliseconds left(std::chrono::milliseconds otherwise) const {
        if (!end_) return otherwise;
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(*end_ - Clock::now());
        if (left.count() <= 0) throw TimedOut{};
        return left;
    }
    void pause() const { std::this_thread::sleep_for(std::min(pollInterval, left(pollInterval))); }

private:
    std::optional<Clock::time_point> end_;
};

// An exception ends it early.
int follow(const WatchOptions& options, std::ostream& out, std::ostream& errors, std::size_t& printed) {
    const auto& receiver = options.receiver;
    const Deadline deadline(receiver);
    Feed feed(receiver);
    feed.start(deadline.left(answerTimeout));
    for (;;) {
        const auto received = feed.poll(deadline.left(actionTimeout));
        if (const auto missed = feed.takeMissed(); missed > 0)
            errors << "tvctl: the receiver had already dropped " << missed << " notifications\n";
        for (const auto& notification : received) {
            const auto message = notification.at("message").get<std::string>();
            if (!options.messages.empty() && options.messages.count(message) == 0) continue;
            if (!receiver.quiet) {
                out << lineOf(notification, receiver.json) << '\n';
                if (const int exitCode = finish(out, errors, receiver.json); exitCode != exitDone) return exitCode;
            }
            if (++printed == options.count) return exitDone;
        }
        if (received.empty()) deadline.pause();
    }
}

} // namespace

int watch(const WatchOptions& options, std::ostream& out, std::ostream& errors) {
    const bool json = options.receiver.json;
    std::size_t printed = 0;
    const auto timedOut = [&](const std::string& why) {
        auto text = "timed out after " + std::to_string(printed);
        if (options.count) text += " of " + std::to_string(*options.count);
        return report(errors, json, {exitTimedOut, -ETIMEDOUT}, text + " notifications" + why);
    };
    try {
        return follow(options, out, errors, printed);
    } catch (const TimedOut&) {
        return timedOut("");
    } catch (const CommandFailure& failure) {
        return report(errors, json, failure.failure(), failure.what());
    } catch (const host::ShellError& error) {
        if (options.receiver.timeout && error.kind() == host::ShellError::Kind::TimedOut)
            return timedOut("; " + textOf(error));
        return report(errors, json, error);
    } catch (const Json::exception& error) {
        return report(errors, json, {exitBadData, -EBADMSG},
                      std::string("the list of notifications is malformed: ") + error.what());
    } catch (const std::exception& error) {
        return report(errors, json, {exitNotAvailable, -ENOTCONN}, error.what());
    }
}

int runWatch(const Options& given, const std::vector<std::string>& arguments) {
    WatchOptions options{given, {}, std::nullopt};
    std::vector<std::string> names;
    bool once = false;
    std::size_t count = 0;
    CLI::App app(
        "Prints new notifications to the process's clients, one per line: time, message and arguments. Ends when\n"
        "the process does.",
        "tvctl watch");
    addOptions(app, options.receiver, noTimeout);
    app.add_option("NAME", names, "Messages to print, such as TvServiceAudioInfo; all by default");
    auto* countOption = app.add_option("--count", count, "End after this many notifications")
                            ->check(CLI::Range(std::uint64_t{1}, std::uint64_t{1000000000}));
    app.add_flag("--once", once, "The same as --count 1")->excludes(countOption);
    app.footer(
        "With --timeout, it ends with exit code 4 after that many seconds, unless the wanted number has arrived "
        "before.");
    if (const auto exitCode = parseArguments(app, arguments)) return *exitCode;
    if (once) count = 1;
    if (count > 0) options.count = count;
    for (const auto& name : names)
        if (const auto problem = checkNotification(name); !problem.empty())
            return report(std::cerr, options.receiver.json, {exitUsage, -EINVAL}, problem);
    options.messages = {names.begin(), names.end()};
    return watch(options, std::cout, std::cerr);
}

} // namespace tvctl
