// Measures the receiver's host process from outside: the size of the library, memory, start-up time, and wake-ups when
// idle.
#include "common/report.h"
#include "process-info.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <exception>
#include <fcntl.h>
#include <filesystem>
#include <kit/receiver-kit.h>
#include <memory>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace bench {
namespace {

using receiver::ChildCommand, receiver::ChildProcess, receiver::Part, receiver::ReceiverKit;
using Clock = std::chrono::steady_clock;

const Report report("receiver");
const receiver::Places places;
const std::filesystem::path adapterLibrary = places.libraries / "libapp-tvservice-adapter.so";

// A pipe whose write end child processes inherit. They write a byte to it when they are ready.
class ReadyPipe {
public:
    ReadyPipe() {
        if (pipe(ends_) != 0) throw std::system_error(errno, std::generic_category(), "pipe");
        fcntl(ends_[0], F_SETFD, FD_CLOEXEC);
    }
    ~ReadyPipe() {
        close(ends_[0]);
        close(ends_[1]);
    }
    ReadyPipe(const ReadyPipe&) = delete;
    ReadyPipe& operator=(const ReadyPipe&) = delete;

    std::string descriptor() const { return std::to_string(ends_[1]); }
    void wait() const {
        pollfd readable{ends_[0], POLLIN, 0};
        char byte;
        if (poll(&readable, 1, static_cast<int>(receiver::defaultTimeout.count())) != 1 ||
            read(ends_[0], &byte, 1) != 1)
            throw std::runtime_error("a process did not become ready");
    }

private:
    int ends_[2];
};

class HostProcess {
public:
    explicit HostProcess(ReceiverKit& kit) : kit_(kit) {}

    // The host process with the library and an application that reports when the adapter serves it.
    ChildCommand served() const {
        ChildCommand command = alone();
        command.arguments.push_back((places.libraries / "libbench-ready-application.so").string());
        command.environment["BENCH_READY"] = ready_.descriptor();
        command.errorLog = kit_.folder() / "served.log"; // waitUntilConnected reads the other log
        return command;
    }
    // The host process with the library only.
    ChildCommand alone() const {
        ChildCommand command;
        command.program = places.programs / "frame-host";
        command.arguments = {adapterLibrary.string()};
        command.environment = {{"RUNTIME_DIRECTORY", kit_.runtimeFolder().string()},
                               {"STATE_DIRECTORY", (kit_.folder() / "state").string()},
                               {"TVSA_LOG", "warning,io=info"}, // "connected"
                               {"TVSA_LOG_FORMAT", "json"}};
        command.errorLog = log();
        return command;
    }
    // A process that only loads the third-party libraries of the host process.
    ChildCommand bare() {
        if (libraries_.empty()) {
            const ChildProcess process(served());
            ready_.wait();
            for (const std::string& path : librariesOutside(places.libraries, process.id()))
                libraries_ += (libraries_.empty() ? "" : ":") + path;
        }
        ChildCommand command;
        command.program = places.programs / "bench-bare-process";
        command.environment = {{"LD_PRELOAD", libraries_}, {"BENCH_READY", ready_.descriptor()}};
        command.errorLog = log();
        return command;
    }

    // The milliseconds from the start of a process until it is ready.
    double startTime(const ChildCommand& command) const {
        const auto start = Clock::now();
        const ChildProcess process(command);
        ready_.wait();
        return nanoseconds(Clock::now() - start) / 1e6;
    }
    double memoryOfBare() {
        const ChildProcess process(bare());
        ready_.wait();
        return residentKilobytes(process.id());
    }
    double memoryOfIdleHost() {
        const ChildProcess process(alone());
        waitUntilConnected();
        return residentKilobytes(process.id());
    }
    // Wake-ups per second while the process is idle.
    double wakeUps(const ChildProcess& process, std::chrono::seconds length) const {
        const auto before = contextSwitches(process.id());
        const auto start = Clock::now();
        std::this_thread::sleep_for(length);
        const double duration = nanoseconds(Clock::now() - start) / 1e9;
        return static_cast<double>(contextSwitches(process.id()) - before) / duration;
    }
    void waitUntilConnected() {
        connected_ += 2;
        const auto connected = [&] {
            const auto lines = receiver::readLog(log());
            return std::count_if(lines.begin(), lines.end(),
                                 [](const auto& line) { return line.text.ends_with(": connected"); }) >= connected_;
        };
        if (!kit_.waitFor(connected, receiver::defaultTimeout))
            throw std::runtime_error("the host process did not connect to the services");
    }

private:
    std::filesystem::path log() const { return kit_.folder() / "bench.log"; }

    ReceiverKit& kit_;
    const ReadyPipe ready_;
    std::string libraries_;        // the third-party ones, for LD_PRELOAD
    std::ptrdiff_t connected_ = 0; // expected number of "connected" lines in the log
};

void librarySize() {
    const std::filesystem::path stripped =
        std::filesystem::temp_directory_path() / ("tvsa-bench-" + std::to_string(getpid()) + ".so");
    ChildProcess strip({BENCH_STRIP, {"-o", stripped.string(), adapterLibrary.string()}, {}, {}});
    strip.wait();
    if (const std::string failure = strip.failure(); !failure.empty()) throw std::runtime_error("strip: " + failure);
    const double bytes = static_cast<double>(std::filesystem::file_size(stripped));
    std::filesystem::remove(stripped);
    report.value("library-size", "own", bytes / 1024, {"KiB", "library"}, Goal{13, 400.0 * 1000 / 1024});
}

void compare(const std::string& caseName, Unit unit, const std::vector<Side>& sides, Rounds rounds, double bound) {
    const auto figures = interleaved(sides, rounds);
    for (const Figures& side : figures) report.figures(caseName, side, unit);
    report.ratio(caseName, figures[0], figures[1], Goal{13, bound});
}

void run(const Options& options) {
    if (options.wants("library-size")) librarySize();
    ReceiverKit kit;
    kit.start(Part::tvService);
    kit.start(Part::mmService);
    HostProcess host(kit);
    const ChildCommand bare = host.bare();
    if (options.wants("start"))
        compare("start", {"ms", "start"},
                {{"own", [&] { return host.startTime(host.served()); }},
                 {"libraries only", [&] { return host.startTime(bare); }}},
                options.rounds({2, 21}), 2.0);
    if (options.wants("memory"))
        compare(
            "memory", {"KiB", "process"},
            {{"own", [&] { return host.memoryOfIdleHost(); }}, {"libraries only", [&] { return host.memoryOfBare(); }}},
            options.rounds({0, 7}), 1.3);
    if (options.wants("idle")) {
        const ChildProcess process(host.alone());
        host.waitUntilConnected();
        std::this_thread::sleep_for(std::chrono::seconds(1)); // until all work of the start is done
        const std::chrono::seconds length(options.quick ? 5 : 30);
        report.value("idle", "own", host.wakeUps(process, length), {"wake-ups", "second"}, Goal{14, 1.2});
    }
}

} // namespace
} // namespace bench

int main(int argc, char** argv) {
    try {
        bench::run(bench::Options::of(argc, argv));
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "receiver_bench: %s\n", error.what());
        return 1;
    }
}
