#include "record.h"

#include "failure.h"
#include "interruption.h"
#include "live-rings.h"
#include "quantities.h"

#include <host/printable.h>
#include <host/ring-reader.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <iostream>
#include <nlohmann/json.hpp>
#include <recording/described-event.h>
#include <recording/event-filter.h>
#include <recording/message-decoder.h>
#include <recording/redaction.h>
#include <set>
#include <utility>

namespace tvctl {
namespace {

using recording::Event;
using recording::Moment;

constexpr std::uint64_t leastRotationBytes = 256 * 1024;

std::int64_t nanosecondsOf(std::chrono::milliseconds time) { return std::chrono::nanoseconds(time).count(); }

// Writes the wanted events.
class Recorder : public recording::Follower {
public:
    Recorder(const RecordOptions& options, std::ostream& errors)
        : options_(options),
          errors_(errors),
          files_(options.file, "tvctl " TVCTL_VERSION, recording::ownDecoder()->schema(), options.rotation) {
        filter_.texts = options.texts;
        if (options.redact) redaction_.emplace();
    }

    bool take(Event event) override {
        reportLoss(event, errors_);
        lost_ += event.lost;
        if (!filter_.isEmpty() && !filter_.accepts(recording::describe({event, {}, {}}))) return true;
        processes_.insert({event.origin->process, event.origin->pid});
        if (redaction_) redaction_->apply(event);
        files_.write(event);
        return true;
    }

    bool rest(const Moment& now) override {
        files_.flush();
        if (!end_ && options_.time) end_ = now.time + nanosecondsOf(*options_.time);
        return !end_ || now.time < *end_;
    }

    void finish(std::ostream& out) {
        files_.finish();
        const std::string& file = options_.file;
        if (options_.receiver.json)
            out << toText({{"file", file},
                           {"events", files_.events()},
                           {"processes", processes_.size()},
                           {"bytes", files_.bytes()},
                           {"lostBytes", lost_}})
                << '\n';
        else if (!options_.receiver.quiet)
            out << host::printable(file) << ": " << files_.events() << " events of " << processes_.size()
                << " processes, " << files_.bytes() << " bytes\n";
    }

private:
    const RecordOptions& options_;
    std::ostream& errors_;
    recording::RecordingFiles files_;
    recording::EventFilter filter_;
    std::optional<recording::Redaction> redaction_;
    std::set<std::pair<std::string, std::uint32_t>> processes_;
    std::optional<std::int64_t> end_;
    std::uint64_t lost_ = 0;
};

template <class Action>
int reporting(const RecordOptions& options, std::ostream& out, std::ostream& errors, const Action& action) {
    try {
        action();
        return finish(out, errors, options.receiver.json);
    } catch (const recording::RecordingError& error) {
        return report(errors, options.receiver.json, failureOf(error), error.what());
    }
}

// Of the same run of the system by its steady clock, of an earlier one by its date.
bool isSince(const Event& event, const Moment& now, std::int64_t nowDate, std::int64_t span) {
    if (event.origin->boot == now.boot) return event.recorded.time >= now.time - span;
    return event.recorded.date >= nowDate - span;
}

} // namespace

int record(const RecordOptions& options, const recording::Surroundings& surroundings, std::ostream& out,
           std::ostream& errors) {
    return reporting(options, out, errors, [&] {
        Recorder recorder(options, errors);
        recording::follow(surroundings, recorder);
        recorder.finish(out);
    });
}

int recordLast(const RecordOptions& options, const recording::Surroundings& surroundings, std::ostream& out,
               std::ostream& errors) {
    auto sources = surroundings.appeared();
    if (sources.empty())
        return report(errors, options.receiver.json, {exitNotAvailable, -ENOENT},
                      host::ringFolder() + ": no process has recorded anything there");
    return reporting(options, out, errors, [&] {
        recording::MergedEvents events;
        for (auto& source : sources) events.add(std::move(source));
        const Moment now = surroundings.now();
        const std::int64_t date = std::chrono::nanoseconds(std::chrono::system_clock::now().time_since_epoch()).count();
        Recorder recorder(options, errors);
        for (Event event; events.next(event, now);)
            if (isSince(event, now, date, nanosecondsOf(*options.time))) recorder.take(std::move(event));
        recorder.finish(out);
    });
}

int runRecord(const Options& given, const std::vector<std::string>& arguments) {
    RecordOptions options{given, {}, {}, false, {}, {}};
    std::optional<std::chrono::milliseconds> last, rotationTime;
    CLI::App app(
        "Writes what the processes of the receiver started here do into a file: their messages, connections, log\n"
        "lines and commands. Records until Ctrl-C, unless --for or --last is given. Does not delay the processes.",
        "tvctl record");
    addOptions(app, options.receiver, noTimeout);
    app.remove_option(app.get_option("--target")); // it records all processes
    app.remove_option(app.get_option("--timeout"));
    app.add_option("FILE", options.file, "The recording to write; one that is there is replaced at the end")
        ->required();
    addDuration(app, "--for", options.time, "Record for this time: 500ms, 60s, 5m, 2h");
    addDuration(app, "--last", last, "Record what the processes still have of the last time, also those that ended");
    app.get_option("--last")->excludes("--for");
    app.add_option("--match", options.texts,
                   "Record only events in whose line, as monitor prints it, the text occurs; may be repeated")
        ->type_name("TEXT")
        ->allow_extra_args(false);
    app.add_flag("--redact", options.redact, "Replace all texts by hashes, which are the same for the same text");
    addSize(app, "--rotate-size", options.rotation.bytes, "Begin a new file before this size: 64K, 10M, 2G");
    addDuration(app, "--rotate-time", rotationTime, "Begin a new file after this time");
    app.add_option("--files", options.rotation.files, "Keep this many files: FILE, FILE.1 before it, and so on")
        ->capture_default_str()
        ->check(CLI::Range(1U, 1000U));
    app.footer("docs/recordings.md describes the file. Other programs that read pcapng can read it, too.");
    if (const auto exitCode = parseArguments(app, arguments)) return *exitCode;
    if (options.rotation.bytes && *options.rotation.bytes < leastRotationBytes)
        return report(std::cerr, options.receiver.json, {exitUsage, -EINVAL},
                      "--rotate-size: each file has the schema of its messages; it needs 256K at least");
    if (rotationTime) options.rotation.nanoseconds = nanosecondsOf(*rotationTime);
    if (last) {
        options.time = last;
        return recordLast(options, liveRings(recording::Rings::Begin::oldest, std::cerr, nullptr), std::cout,
                          std::cerr);
    }
    noteWaiting(options.receiver, std::cerr);
    const EndingOnSignals signals;
    const auto pause = [&signals] { return signals.pause(followInterval); };
    return record(options, liveRings(recording::Rings::Begin::newest, std::cerr, pause), std::cout, std::cerr);
}

} // namespace tvctl
