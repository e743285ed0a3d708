// The file of the run log, for programs that check it.
#pragma once

#include <string>

namespace host {

inline constexpr const char* runLogName = "runlog.sqlite"; // in the state folder

// Says what is wrong with the content of a run log, or returns an empty string. Reads the whole file; changes neither
// it nor the files beside it, and does not disturb processes that write it. Throws nothing but std::bad_alloc.
std::string problemOfRunLog(const std::string& file);

} // namespace host
