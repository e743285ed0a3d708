// What becomes of a receiver when its surroundings fail: the disk under the run log, the wall clock, other clients.
#include "../figure.h"
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
#include <sys/mman.h>
#include <unistd.h>

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
    const unsigned writers = argc > 1 && std::strcmp(argv[1], "--quick") == 0 ? 50 : 500;
    std::string controlFile;
    Control& control = makeControl(controlFile);
    // For the processes of receivers, not for this one.
    setenv(controlVariable, controlFile.c_str(), 1);
    setenv("LD_PRELOAD", CHECK_SHIM, 1);

    Figures figures;
    const std::pair<const char*, std::function<void()>> scenarios[] = {
        {"writers of the run log killed", [&] { killWriters(writers, CHECK_WRITER, figures); }},
        {"a stalled disk", [&] { runOnAStalledDisk(control, figures); }},
        {"a full disk", [&] { runOnABadDisk(control, Disk::full, figures); }},
        {"a failing disk", [&] { runOnABadDisk(control, Disk::failing, figures); }},
        {"a wall clock that jumps", [&] { runWhileTheClockJumps(control, figures); }},
        {"clients that do not read", [&] { runWithClientsThatDoNotRead(figures); }},
    };
    int failures = 0;
    for (const auto& [name, run] : scenarios) {
        std::string result = "held";
        try {
            run();
        } catch (const std::exception& error) {
            result = std::string("FAILED: ") + error.what();
            ++failures;
            control.disk = Disk::sound;
            control.clockOffset = 0;
        }
        std::cout << name << ": " << result << std::endl;
    }
    unlink(controlFile.c_str());

    const auto line = [&](const char* what, long value, const char* unit, bool held, const std::string& bound) {
        std::printf("%-48s %8ld %-14s %s%s\n", what, value, unit, bound.c_str(), held ? "" : "  NOT HELD");
        checks::reportFigure(what, value, unit, bound);
        failures += held ? 0 : 1;
    };
    constexpr long slowest = 250, shortest = 5000, longest = 7500;
    const long slow = figures.slowestPlay.count(), low = figures.shortestWait.count(),
               high = figures.longestWait.count();
    line("writers of the run log killed", figures.killedWriters, "writers", figures.killedWriters == writers,
         "the log sound after each, nothing stored is gone");
    line("slowest play on a stalled, full or failing disk", slow, "ms", slow <= slowest, "at most 250 ms");
    line("shortest wait for an answer as the clock jumps", low, "ms", low >= shortest, "at least 5000 ms");
    line("longest wait for an answer as the clock jumps", high, "ms", high <= longest, "at most 7500 ms");
    line("notifications beside a client that does not read", static_cast<long>(figures.notifications), "notifications",
         figures.notifications > 0, "all that were sent");
    return failures == 0 ? 0 : 1;
}
