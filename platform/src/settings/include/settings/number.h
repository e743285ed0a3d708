// Settings that are numbers.
#pragma once

#include <cstdint>
#include <string>

namespace host::config {

// Throws as setting does.
std::uint64_t numberOf(const std::string& name);

// For those that cannot fail: the built-in number when the configuration is wrong, and in problem what was wrong and
// which number is used; problem is empty otherwise.
std::uint64_t numberOf(const std::string& name, std::string& problem);

} // namespace host::config
