// Durations and sizes, as people type them.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace CLI {
class App;
} // namespace CLI

namespace tvctl {

// "500ms", "60s", "5m", "2h"; at least a millisecond, at most a year. Empty for anything else.
std::optional<std::chrono::milliseconds> durationOf(const std::string& text);
// "64K", "10M", "2G", of 1024 each, or a number of bytes. Empty for anything else.
std::optional<std::uint64_t> sizeOf(const std::string& text);

// Add an option with a duration or a size.
void addDuration(CLI::App& app, const char* name, std::optional<std::chrono::milliseconds>& value, const char* help);
void addSize(CLI::App& app, const char* name, std::optional<std::uint64_t>& value, const char* help);

} // namespace tvctl
