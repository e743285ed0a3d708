// Hostile clients, in processes of their own.
#pragma once

#include <filesystem>
#include <kit/child-process.h>
#include <memory>
#include <string>
#include <vector>

namespace access_check {

namespace kinds {
inline constexpr const char* garbage = "garbage"; // send random bytes
inline constexpr const char* silent = "silent";   // send nothing
inline constexpr const char* slow = "slow";       // send their hello a byte at a time
inline constexpr const char* abrupt = "abrupt";   // disconnect at once
} // namespace kinds

// Starts a process that makes `count` connections of a kind, `perSecond` a second (0: each after the previous one has
// ended), and ends after the last one has. `hello` is a file with the first message of a client.
std::unique_ptr<receiver::ChildProcess> startFlood(const std::string& kind, const std::string& path, unsigned count,
                                                   unsigned perSecond, const std::filesystem::path& hello,
                                                   const std::filesystem::path& log);

// The main function of that process, with the arguments after "--flood". Returns its exit code.
int flood(const std::vector<std::string>& arguments);

} // namespace access_check
