// What a process has taken of the system.
#pragma once

#include "heap-count.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <sys/types.h>

namespace killed {

struct ProcessSize {
    long descriptors, threads;
    long heapBytes, heapBlocks; // allocated and not freed
    long kibibytes;             // of its own memory that is present
};

// heapCount: the file that the process counts into.
inline ProcessSize sizeOf(pid_t process, const std::filesystem::path& heapCount) {
    namespace fs = std::filesystem;
    const fs::path place = "/proc/" + std::to_string(process);
    const auto count = [&](const char* folder) {
        return static_cast<long>(std::distance(fs::directory_iterator(place / folder), fs::directory_iterator{}));
    };
    std::int64_t heap[2];
    static_assert(sizeof heap == sizeof(HeapCount));
    if (!std::ifstream(heapCount, std::ios::binary).read(reinterpret_cast<char*>(heap), sizeof heap) || heap[1] <= 0)
        throw std::runtime_error("no count of the heap in " + heapCount.string());
    ProcessSize size{count("fd"), count("task"), heap[0], heap[1], 0};
    std::ifstream status(place / "status");
    for (std::string word; status >> word;)
        if (word == "RssAnon:") status >> size.kibibytes;
    return size;
}

// Whether a child of this process has ended, be it that its result has not been asked for.
inline bool hasEnded(pid_t child) {
    std::ifstream status("/proc/" + std::to_string(child) + "/status");
    for (std::string word; status >> word;)
        if (word == "State:") return status >> word && word == "Z";
    return true;
}

} // namespace killed
