// The situations that a receiver's surroundings are brought into.
#pragma once

#include "control.h"

#include <chrono>
#include <filesystem>

namespace surroundings {

struct Figures {
    std::chrono::milliseconds slowestPlay{0};                        // while the disk was not as it should be
    std::chrono::milliseconds slowestEnd{0};                         // of a process whose disk does not answer
    std::chrono::milliseconds shortestWait{1 << 30}, longestWait{0}; // until a request was dropped, as clocks jumped
    unsigned clockJumps = 0;                                         // that show between the times of log lines
    std::uint64_t notifications = 0;                   // that an honest client got beside one that does not read
    std::uint64_t slowlyRead = 0;                      // that a client got whole which reads a few bytes at a time
    std::chrono::milliseconds playBesideSlowReader{0}; // the slowest meanwhile
    unsigned killedWriters = 0;
};

// Each throws std::exception, saying what was not as it must be. All but the writers' run receivers of their own.
void runOnAStalledDisk(Control& control, Figures& figures);
void runOnABadDisk(Control& control, Disk disk, Figures& figures);
void runWhileTheClockJumps(Control& control, Figures& figures);
void runWithClientsThatDoNotRead(Figures& figures);
void runWithAClientThatReadsSlowly(Figures& figures);
// Kills processes that write to a run log, and looks what is in it.
void killWriters(unsigned times, const std::filesystem::path& program, Figures& figures);

} // namespace surroundings
