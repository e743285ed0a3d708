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

// The receiver's notifications, as its shell lists them: a poll asks for what came since the one before.
class Feed {
public:
    explicit Feed(const Options& options) : options_(options) {}

    // Connects, and takes note of the newest notification: the next poll brings what came after it.
    void start(std::chrono::milliseconds timeout) {
        client_.connect(host::shellEndpointOf(options_.target));
        for (const auto& notification : ask({"notifications"}, timeout)) seen(notification);
    }

    // The notifications that are new, oldest first; there may be more of them at once. Asks for the last one seen
    // again: when it is another one now, or there is none, the numbers have started again and all that came since is
    // new.
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
        for (const auto& notification : list) seen(notification);
        return list;
    }

    // How many notifications the receiver had dropped before they could be asked for, since the last call.
    std::uint64_t takeMissed() { return std::exchange(missed_, 0); }

private:
    // Copies and texts of JSON take stack for each level.
    static std::vector<Json> listOf(const std::string& text) {
        constexpr int deepest = 32; // the records of notifications have fewer levels than ten
        const auto checkDepth = [](int depth, Json::parse_event_t, Json&) {
            if (depth <= deepest) return true;
            throw host::ShellError(host::ShellError::Kind::BadData, "the list of notifications is nested more than " +
                                                                        std::to_string(deepest) + " levels deep");
        };
        return Json::parse(text, checkDepth).get<std::vector<Json>>();
    }

    static std::uint64_t numberOf(const Json& notification) { return notification.at("number").get<std::uint64_t>(); }
    static std::string timeOf(const Json& notification) { return notification.at("time").get<std::string>(); }

    void seen(const Json& notification) {
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
    // The receiver keeps no arguments that are longer than an answer can be.
    const auto omitted = notification.find("omittedBytes");
    const std::string arguments = omitted == notification.end() ? textOf(notification.at("arguments"))
                                                                : "(" + textOf(*omitted) + " bytes left out)";
    // JSON leaves some characters as they are that steer terminals.
    return host::printable(notification.at("time").get<std::string>() + " " +
                           notification.at("message").get<std::string>() + " " + arguments);
}

struct TimedOut {};

// When to give up, if ever.
class Deadline {
public:
    explicit Deadline(const Options& options)
        : answer_(options.timeout),
          end_(options.timeoutGiven ? std::optional(Clock::now() + options.timeout) : std::nullopt) {}

    // How long an answer may take. Throws TimedOut when there is no time left.
    std::chrono::milliseconds left() const {
        if (!end_) return answer_;
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(*end_ - Clock::now());
        if (left.count() <= 0) throw TimedOut{};
        return left;
    }
    void pause() const { std::this_thread::sleep_for(std::min(pollInterval, left())); }

private:
    std::chrono::milliseconds answer_;
    std::optional<Clock::time_point> end_;
};

// Throws what ends it early.
int follow(const WatchOptions& options, std::ostream& out, std::ostream& errors, std::size_t& printed) {
    const auto& receiver = options.receiver;
    const Deadline deadline(receiver);
    Feed feed(receiver);
    feed.start(deadline.left());
    for (;;) {
        const auto news = feed.poll(deadline.left());
        if (const auto missed = feed.takeMissed(); missed > 0)
            errors << "tvctl: the receiver had already dropped " << missed << " notifications\n";
        for (const auto& notification : news) {
            const auto message = notification.at("message").get<std::string>();
            if (!options.messages.empty() && options.messages.count(message) == 0) continue;
            if (!receiver.quiet) {
                out << lineOf(notification, receiver.json) << '\n';
                if (const int exitCode = finish(out, errors, receiver.json); exitCode != exitDone) return exitCode;
            }
            if (++printed == options.count) return exitDone;
        }
        if (news.empty()) deadline.pause();
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
        if (options.receiver.timeoutGiven && error.kind() == host::ShellError::Kind::TimedOut)
            return timedOut(std::string("; ") + error.what());
        return report(errors, json, failureOf(error.kind()), error.what());
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
        "Prints what the process's clients are told from now on, a line for each notification: time, message and\n"
        "arguments. Ends when the process does.",
        "tvctl watch");
    addOptions(app, options.receiver);
    app.add_option("NAME", names, "Messages to print, such as TvServiceAudioInfo; all when there is none");
    auto* countOption = app.add_option("--count", count, "End after so many notifications")
                            ->check(CLI::Range(std::uint64_t{1}, std::uint64_t{1000000000}));
    app.add_flag("--once", once, "The same as --count 1")->excludes(countOption);
    app.footer("With --timeout, it ends after so many seconds with exit code 4 unless as many came as are wanted.");
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
