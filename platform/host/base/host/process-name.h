// The name of this process.
#pragma once

#include <string>

namespace host {

// The name under which this process is known to others ("frame-host", "tvserviced"); the program's base name at first.
std::string processName();
void setProcessName(const std::string& name);

} // namespace host
