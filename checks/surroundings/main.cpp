// Runs a receiver whose environment fails: the disk of the run log, the wall clock, other clients.
#include "../report.h"
#include "scenarios.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <functional>
#include <iostream>
#include <new>
#include <stdexcept>
#include <string>
#include <sys/mman.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

using namespace surroundings;

Control& makeControl(std::string& file) {
    file = "/tmp/surroundings-XXXXXX";
    const int descriptor = mkstemp(file.data());
    if (descriptor < 0 || ftruncate(descriptor, sizeof(Control)) != 0) throw std::runtime_error(std::strerror(errno));
    void* const page = mmap(nullptr, sizeof(Control), PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
    close(descriptor);
    if (page == MAP_FAILED) throw std::runtime_error(std::strerror(errno));
    return *new (page) Control{};
}

} // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    const bool quick = std::find(arguments.begin(), arguments.end(), "--quick") != arguments.end();
    const unsigned writers = quick ? 50 : 500;
    std::string controlFile;
    Control& control = makeControl(controlFile);
    // For the receivers' processes, not for this one.
    setenv(controlVariable, controlFile.c_str(), 1);
    setenv("LD_PRELOAD", CHECK_SHIM, 1);

    Figures figures;
    std::vector<checks::Scenario> scenarios{
        {"writers of the run log killed", [&] { killWriters(writers, CHECK_WRITER, figures); }},
        {"a stalled disk", [&] { runOnAStalledDisk(control, figures); }},
        {"a full disk", [&] { runOnABadDisk(control, Disk::full, figures); }},
        {"a failing disk", [&] { runOnABadDisk(control, Disk::failing, figures); }},
        {"a wall clock that jumps", [&] { runWhileTheClockJumps(control, figures); }},
        {"clients that do not read", [&] { runWithClientsThatDoNotRead(figures); }},
        {"a client that reads slowly", [&] { runWithAClientThatReadsSlowly(figures); }},
    };
    checks::Report report;
    for (checks::Scenario& scenario : scenarios)
        scenario.run = [&control, run = std::move(scenario.run)] {
            control.disk = Disk::working; // also after a failed scenario
            control.clockOffset = 0;
            run();
        };
    const int failure = report.runAll(scenarios, arguments);
    unlink(controlFile.c_str());
    if (failure != 0) return failure;
    if (!checks::Report::onlyOf(arguments).empty()) return report.exitCode();

    constexpr long slowest = 250, shortest = 5000, longest = 7500;
    const long slow = figures.slowestPlay.count(), low = figures.shortestWait.count(),
               high = figures.longestWait.count();
    report.line("writers of the run log killed", figures.killedWriters, "writers", figures.killedWriters == writers,
                "the log is intact after each, no stored record is lost");
    report.line("slowest play on a stalled, full or failing disk", slow, "ms", slow <= slowest, "at most 250 ms");
    const long end = figures.slowestEnd.count();
    report.line("end of a process on a stalled disk, with a reader of the run log", end, "ms", end > 0 && end <= 2000,
                "at most 2000 ms");
    report.line("jumps of the wall clock visible in the log's times", figures.clockJumps, "jumps",
                figures.clockJumps == 6, "all 6");
    report.line("shortest wait for an answer while the clock jumps", low, "ms", low >= shortest, "at least 5000 ms");
    report.line("longest wait for an answer while the clock jumps", high, "ms", high <= longest, "at most 7500 ms");
    report.line("notifications beside a client that does not read", static_cast<long>(figures.notifications),
                "notifications", figures.notifications > 0, "all that were sent");
    report.line("notifications to a client that reads slowly", static_cast<long>(figures.slowlyRead), "notifications",
                figures.slowlyRead > 0, "all that were sent, each complete");
    report.line("slowest play beside a client that reads slowly", figures.playBesideSlowReader.count(), "ms",
                figures.playBesideSlowReader.count() <= slowest, "at most 250 ms");
    return report.exitCode();
}
