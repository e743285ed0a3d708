// The failures of a receiver's environment.
#pragma once

#include "control.h"

#include <chrono>
#include <filesystem>

namespace surroundings {

struct Figures {
    std::chrono::milliseconds slowestPlay{0};                        // while the disk stalls or fails
    std::chrono::milliseconds slowestEnd{0};                         // of a process whose disk stalls
    std::chrono::milliseconds shortestWait{1 << 30}, longestWait{0}; // until a request is dropped, while clocks jump
    unsigned clockJumps = 0;                                         // visible in the times of log lines
    std::uint64_t notifications = 0;                                 // received beside a client that does not read
    std::uint64_t slowlyRead = 0;                      // received by a client that reads a few bytes at a time
    std::chrono::milliseconds playBesideSlowReader{0}; // the slowest one
    unsigned killedWriters = 0;
};

// Each throws std::exception with what was wrong. All but killWriters start a receiver.
void runOnAStalledDisk(Control& control, Figures& figures);
void runOnABadDisk(Control& control, Disk disk, Figures& figures);
void runWhileTheClockJumps(Control& control, Figures& figures);
void runWithClientsThatDoNotRead(Figures& figures);
void runWithAClientThatReadsSlowly(Figures& figures);
// Kills processes that write to a run log, and examines the run log after each.
void killWriters(unsigned times, const std::filesystem::path& program, Figures& figures);

} // namespace surroundings
