// The file that the run log is kept in, for those who look after it.
#pragma once

#include <string>

namespace host {

inline constexpr const char* runLogName = "runlog.sqlite"; // in the state folder

// What is wrong with the content of a run log, or an empty string. Reads all of it, and changes nothing, neither the
// file nor what is beside it; processes that write it go on. Throws nothing but std::bad_alloc.
std::string problemOfRunLog(const std::string& file);

} // namespace host
