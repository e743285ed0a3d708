// The debug output of a receiver's process, as it is written with TVSA_LOG_FORMAT=json.
#pragma once

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace receiver {

using Time = std::chrono::time_point<std::chrono::system_clock, std::chrono::microseconds>;

// "2026-05-17T08:30:00.123456Z", in as many digits as there are; nothing for another text.
std::optional<Time> timeOf(const std::string& text);

struct LogLine {
    Time time;
    std::string module, level, text;
};

// The complete lines of a log so far. What is not in the log's form (a crash report, say) is left out.
std::vector<LogLine> readLog(const std::filesystem::path& file);

// The last lines of a log as they are.
std::string tailOf(const std::filesystem::path& file, std::size_t lines);

} // namespace receiver
