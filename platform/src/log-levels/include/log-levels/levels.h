// Debug levels as text, and the names of modules.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace host::debug {

// The name of a module, or null when it has none. Valid for the life of the process.
const char* nameOfModule(std::uint32_t module) noexcept;

// What is wrong with debug levels, a line for each item that is; empty when nothing is.
std::string levelComplaints(std::string_view text);

// Sets the levels of those items that are right, and returns the complaints about the others.
std::string setUsableLevels(std::string_view text);

} // namespace host::debug
