// Information about a running process from /proc.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <sys/types.h>
#include <vector>

namespace bench {

// All throw std::runtime_error if there is no such process.
double residentKilobytes(pid_t process);
// The voluntary and involuntary context switches of all its threads, each of which implies a wake-up.
std::uint64_t contextSwitches(pid_t process);
double processorMilliseconds(pid_t process); // that all its threads have used
// The shared libraries that it has mapped, except those below `folder`, the loader and virtual ones.
std::vector<std::string> librariesOutside(const std::filesystem::path& folder, pid_t process);

} // namespace bench
