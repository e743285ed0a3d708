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

} // namespace host::debug
