// The internal interface of the debug output.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>

namespace host::debug {

// Called once, for the first line: whether lines are JSON objects. Returns in problem what is wrong with the
// configuration of that, if anything. Null, which means text, until it is set.
extern std::atomic<bool (*)(std::string& problem)> jsonIsWanted;

// Writes a line without applying a limit.
void writeLine(std::uint32_t levelWord, std::string_view text) noexcept;

// The number of captures; without any, output costs one load more.
extern std::atomic<int> captures;
// Passes a line to every capture. Returns whether one of them keeps it off stderr.
bool capture(std::uint32_t levelWord, std::string_view text);

} // namespace host::debug
