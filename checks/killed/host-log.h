// The resource manager's log lines about requests, read while the receiver runs.
#pragma once

#include <filesystem>
#include <fstream>
#include <kit/log-file.h>
#include <optional>
#include <string>
#include <vector>

namespace killed {

// Reads each line once, as the log of a run of hours is too long to be read again for every search.
class HostLog {
public:
    explicit HostLog(std::filesystem::path file) : file_(std::move(file)) {}

    // Ignores all lines so far.
    void begin();
    // The newest line since begin() that contains the words; null if there is none.
    const receiver::LogLine* newest(const std::string& words);
    // The same for words followed by a request's id, which must not be the beginning of a longer id.
    const receiver::LogLine* about(const std::string& words, const std::string& reqId);

private:
    void read();

    const std::filesystem::path file_;
    std::streamoff read_ = 0;
    std::vector<receiver::LogLine> lines_;
};

} // namespace killed
