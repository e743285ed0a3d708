// How many bytes and blocks of the C heap a process holds: the processes of receivers keep the count in a file, which
// they map, and the check reads it.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

namespace killed {

struct HeapCount {
    std::atomic<std::int64_t> bytes, blocks;
};

// In the process's state folder, by the program's name.
inline std::string heapCountFileOf(const std::string& program) { return "heap-count." + program; }

} // namespace killed
