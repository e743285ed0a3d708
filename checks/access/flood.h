// Clients that nobody wants, in processes of their own.
#pragma once

#include <filesystem>
#include <kit/child-process.h>
#include <memory>
#include <string>
#include <vector>

namespace access_check {

namespace kinds {
inline constexpr const char* garbage = "garbage"; // clients that say random bytes
inline constexpr const char* silent = "silent";   // that say nothing
inline constexpr const char* slow = "slow";       // that say their hello a byte at a time
inline constexpr const char* abrupt = "abrupt";   // that are gone at once
} // namespace kinds

// A process that makes so many connections of a kind, so many in a second (0: each when the one before has ended), and
// ends when the last one has. A slow client's words are what it would say at once.
std::unique_ptr<receiver::ChildProcess> startFlood(const std::string& kind, const std::string& path, unsigned count,
                                                   unsigned perSecond, const std::filesystem::path& words,
                                                   const std::filesystem::path& log);

// What that process runs: its program's arguments after "--flood". Returns its exit code.
int flood(const std::vector<std::string>& arguments);

} // namespace access_check
