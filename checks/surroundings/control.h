// How the check drives what surrounds the processes of a receiver: a page of memory in a file, which they map, too.
#pragma once

#include <atomic>
#include <cstdint>

namespace surroundings {

inline constexpr const char* controlVariable = "CHECK_SURROUNDINGS"; // names the file

enum class Disk : int { sound, stalled, full, failing };

struct Control {
    std::atomic<Disk> disk;                   // what becomes of writing to a run log
    std::atomic<std::int64_t> clockOffset;    // seconds that the wall clock is ahead
    std::atomic<std::uint64_t> stalledWrites; // that are waiting or have waited
};

} // namespace surroundings
