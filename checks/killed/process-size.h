// What a process has taken of the system.
#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <sys/types.h>

namespace killed {

struct ProcessSize {
    long descriptors, threads;
    long kibibytes; // of its own memory that is present
};

inline ProcessSize sizeOf(pid_t process) {
    namespace fs = std::filesystem;
    const fs::path place = "/proc/" + std::to_string(process);
    const auto count = [&](const char* folder) {
        return static_cast<long>(std::distance(fs::directory_iterator(place / folder), fs::directory_iterator{}));
    };
    ProcessSize size{count("fd"), count("task"), 0};
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
