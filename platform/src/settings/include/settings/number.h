// Settings that are numbers.
#pragma once

#include <cstdint>
#include <string>

namespace host::config {

// Throws like setting.
std::uint64_t numberOf(const std::string& name);

// For users that must not fail. When the configuration is invalid, returns the built-in number, and in problem the
// error and the number used; otherwise problem is empty.
std::uint64_t numberOf(const std::string& name, std::string& problem);

} // namespace host::config
