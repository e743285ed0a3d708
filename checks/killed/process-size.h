// The resources that a process uses.
#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <sys/types.h>

namespace killed {

struct ProcessSize {
    long descriptors, threads;
    long kibibytes; // resident anonymous memory
};

inline ProcessSize sizeOf(pid_t process) {
    namespace fs = std::filesystem;
    const fs::path path = "/proc/" + std::to_string(process);
    const auto count = [&](const char* folder) {
        return static_cast<long>(std::distance(fs::directory_iterator(path / folder), fs::directory_iterator{}));
    };
    ProcessSize size{count("fd"), count("task"), 0};
    std::ifstream status(path / "status");
    for (std::string word; status >> word;)
        if (word == "RssAnon:") status >> size.kibibytes;
    return size;
}

// Whether a child of this process has ended, even if it has not been reaped.
inline bool hasEnded(pid_t child) {
    std::ifstream status("/proc/" + std::to_string(child) + "/status");
    for (std::string word; status >> word;)
        if (word == "State:") return status >> word && word == "Z";
    return true;
}

} // namespace killed
