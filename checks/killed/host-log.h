// What the resource manager of a receiver logs about its requests, read as it comes.
#pragma once

#include <filesystem>
#include <fstream>
#include <kit/log-file.h>
#include <optional>
#include <string>
#include <vector>

namespace killed {

// Reads each line once: a log of hours is not to be read over for every look.
class HostLog {
public:
    explicit HostLog(std::filesystem::path file) : file_(std::move(file)) {}

    // Forgets what has come so far.
    void begin();
    // The newest line so far that has the words, of those since begin.
    const receiver::LogLine* newest(const std::string& words);
    // The same for words that end in a request's id, which is not to be the beginning of a longer one.
    const receiver::LogLine* about(const std::string& words, const std::string& reqId);

private:
    void read();

    const std::filesystem::path file_;
    std::streamoff read_ = 0;
    std::vector<receiver::LogLine> lines_;
};

} // namespace killed
