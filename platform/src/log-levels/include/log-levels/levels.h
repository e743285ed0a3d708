// Debug levels as text, and the names of modules.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace host::debug {

// The name of a module, or null when it has none. Valid until the process ends.
const char* nameOfModule(std::uint32_t module) noexcept;

// The errors in a list of debug levels, one line for each invalid item; empty when all are valid.
std::string levelErrors(std::string_view text);

// Sets the levels of the valid items and returns the errors in the others.
std::string setValidLevels(std::string_view text);

// From now on lines up to this severity are enabled, whatever levels are set, because they are recorded.
void recordUpTo(std::uint16_t level);
// Whether a line is to be recorded; whether it is to be printed as well, which is true as long as nothing is recorded:
// it would not have been enabled otherwise.
bool isRecorded(std::uint32_t levelWord) noexcept;
bool isPrinted(std::uint32_t levelWord) noexcept;

} // namespace host::debug
