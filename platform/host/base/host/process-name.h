// The name of this process.
#pragma once

#include <string>

namespace host {

// The name of this process for others ("frame-host", "tvserviced"); initially the program's base name.
std::string processName();
void setProcessName(const std::string& name);

} // namespace host
