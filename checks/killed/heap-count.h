// How many bytes and blocks of the C heap a process has allocated. The processes of receivers keep the count in a
// mapped file, which the check reads.
#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

namespace killed {

struct HeapCount {
    std::atomic<std::int64_t> bytes, blocks;
};

// The name of the file in the process's state folder.
inline std::string heapCountFileOf(const std::string& program) { return "heap-count." + program; }

struct HeapSize {
    long bytes, blocks; // allocated and not freed
};

// Reads a process's count from its file.
inline HeapSize heapSizeIn(const std::filesystem::path& file) {
    std::int64_t count[2];
    static_assert(sizeof count == sizeof(HeapCount));
    if (!std::ifstream(file, std::ios::binary).read(reinterpret_cast<char*>(count), sizeof count) || count[1] <= 0)
        throw std::runtime_error("no count of the heap in " + file.string());
    return {static_cast<long>(count[0]), static_cast<long>(count[1])};
}

} // namespace killed
