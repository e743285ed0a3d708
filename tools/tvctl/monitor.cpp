#include "monitor.h"

#include "failure.h"
#include "live-rings.h"

#include <algorithm>
#include <cerrno>
#include <nlohmann/json.hpp>
#include <ostream>
#include <recording/described-event.h>
#include <recording/recording-reader.h>
#include <utility>

namespace tvctl {
namespace {

using recording::Event;
using recording::Moment;
using recording::Shown;

class Monitor : public recording::Follower {
public:
    Monitor(const MonitorOptions& options, std::ostream& out, std::ostream& errors)
        : options_(options), out_(out), errors_(errors) {}

    bool take(Event event) override {
        reportLoss(event, errors_);
        if (options_.both) return print({std::move(event), {}, {}});
        deliveries_.add(std::move(event));
        return printReady();
    }

    bool rest(const Moment& now) override {
        deliveries_.advance(now);
        if (!printReady() || !flush()) return false;
        if (!options_.receiver.timeout) return true;
        if (!end_) end_ = now.time + std::chrono::nanoseconds(*options_.receiver.timeout).count();
        if (now.time < *end_) return true;
        if (!endDeliveries()) return false; // which may reach the count
        auto text = "timed out after " + std::to_string(printed_);
        if (options_.count) text += " of " + std::to_string(*options_.count);
        exitCode_ = report(errors_, options_.receiver.json, {exitTimedOut, -ETIMEDOUT}, text + " events");
        return false;
    }

    // No further events come.
    int finish() {
        if (!isDone_) endDeliveries();
        flush();
        return exitCode_;
    }

private:
    bool endDeliveries() {
        deliveries_.end();
        return printReady();
    }

    bool printReady() {
        while (auto shown = deliveries_.take())
            if (!print(*shown)) return false;
        return true;
    }

    bool print(const Shown& shown) {
        const auto description = recording::describe(shown);
        if (!options_.filter.accepts(description)) return true;
        if (!options_.receiver.quiet)
            out_ << (options_.receiver.json ? recording::textOf(description) : recording::lineOf(description)) << '\n';
        isDone_ = ++printed_ == options_.count;
        return !isDone_ && out_.good();
    }

    bool flush() {
        if (exitCode_ == exitDone) exitCode_ = tvctl::finish(out_, errors_, options_.receiver.json);
        return exitCode_ == exitDone;
    }

    const MonitorOptions& options_;
    std::ostream& out_;
    std::ostream& errors_;
    recording::Deliveries deliveries_;
    std::size_t printed_ = 0;
    bool isDone_ = false;
    std::optional<std::int64_t> end_;
    int exitCode_ = exitDone;
};

} // namespace

int monitor(const MonitorOptions& options, const recording::Surroundings& surroundings, std::ostream& out,
            std::ostream& errors) {
    Monitor monitor(options, out, errors);
    try {
        recording::follow(surroundings, monitor);
    } catch (const recording::RecordingError& error) {
        monitor.finish();
        return report(errors, options.receiver.json, failureOf(error), error.what());
    }
    return monitor.finish();
}

int monitorRecording(const MonitorOptions& options, const std::string& file, std::ostream& out, std::ostream& errors) {
    Monitor monitor(options, out, errors);
    try {
        recording::RecordingReader reader(file);
        Event event;
        bool goesOn = true;
        while (goesOn && reader.next(event)) goesOn = monitor.take(std::move(event));
        const int exitCode = monitor.finish();
        if (reader.isTruncated() && exitCode == exitDone)
            errors << "tvctl: warning: the recording is cut off: its last block is not whole\n";
        return exitCode;
    } catch (const recording::RecordingError& error) {
        monitor.finish();
        return report(errors, options.receiver.json, failureOf(error), error.what());
    }
}

} // namespace tvctl
