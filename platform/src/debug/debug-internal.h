// What the parts of the debug output share.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>

namespace host::debug {

inline constexpr std::uint32_t vdlModule = 0x0203;

// The name of a module, or null when it has none. Valid for the life of the process.
const char* nameOfModule(std::uint32_t module) noexcept;

// What is wrong with debug levels, a line for each item that is; empty when nothing is.
std::string levelComplaints(std::string_view text);

// Prints what was wrong with TVSA_LOG, a line of its own for each line of complaints.
void reportLevelComplaints(const std::string& complaints);

// Appends text fit for a terminal and a line-oriented file: each line feed becomes lineFeed; other control characters
// and bytes that are not UTF-8 become \xNN, so that no text can forge a line or steer a terminal.
void appendEscaped(std::string& out, std::string_view text, std::string_view lineFeed);

// Writes a line that no limit holds back.
void writeLine(std::uint32_t levelWord, std::string_view text) noexcept;

// How many captures there are, so that output without any pays one load.
extern std::atomic<int> captures;
// Gives a line to every capture; returns whether one of them wants it kept off stderr.
bool capture(std::uint32_t levelWord, std::string_view text);

} // namespace host::debug
