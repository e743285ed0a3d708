// The debug output behind the public face.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>

namespace host::debug {

// Asked once, with the first line: whether lines are JSON objects; problem says what is wrong with the configuration
// that decides it, if anything is. Null, and hence text, until somebody sets it.
extern std::atomic<bool (*)(std::string& problem)> jsonIsWanted;

// Writes a line that no limit holds back.
void writeLine(std::uint32_t levelWord, std::string_view text) noexcept;

// How many captures there are, so that output without any pays one load.
extern std::atomic<int> captures;
// Gives a line to every capture; returns whether one of them wants it kept off stderr.
bool capture(std::uint32_t levelWord, std::string_view text);

} // namespace host::debug
