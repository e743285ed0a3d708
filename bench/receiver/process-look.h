// What the system knows of a running process.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <sys/types.h>
#include <vector>

namespace bench {

// All throw std::runtime_error when the process is not there.
double residentKilobytes(pid_t process);
// Of all its threads, by their own will or not: how often one of them was taken off its CPU, and so came back to it.
std::uint64_t contextSwitches(pid_t process);
// The shared libraries that it has mapped, without those below `ours`, the loader and its own virtual ones.
std::vector<std::string> librariesBut(const std::filesystem::path& ours, pid_t process);

} // namespace bench
