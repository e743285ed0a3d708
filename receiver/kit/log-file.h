// Reads the debug output of a receiver's process, written with TVSA_LOG_FORMAT=json.
#pragma once

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace receiver {

using Time = std::chrono::time_point<std::chrono::system_clock, std::chrono::microseconds>;

// Parses "2026-05-17T08:30:00.123456Z", with any number of fractional digits; nullopt for another text.
std::optional<Time> timeOf(const std::string& text);

struct LogLine {
    Time time;
    std::string module, level, text;
};

// The complete lines of a log so far. Skips lines in another format, such as a crash report.
std::vector<LogLine> readLog(const std::filesystem::path& file);

// The last lines of a log, unchanged.
std::string tailOf(const std::filesystem::path& file, std::size_t lines);

} // namespace receiver
