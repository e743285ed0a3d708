// Controls the environment of a receiver's processes through a file that the check and the processes map.
#pragma once

#include <atomic>
#include <cstdint>

namespace surroundings {

inline constexpr const char* controlVariable = "CHECK_SURROUNDINGS"; // names the file

enum class Disk : int { working, stalled, full, failing };

struct Control {
    std::atomic<Disk> disk;                   // the state of the run log's disk
    std::atomic<std::int64_t> clockOffset;    // seconds by which the wall clock is ahead
    std::atomic<std::uint64_t> stalledWrites; // writes that wait or have waited
};

} // namespace surroundings
