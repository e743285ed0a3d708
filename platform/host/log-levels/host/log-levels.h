// Debug levels that a command of a running process sets.
#pragma once

#include <string>

namespace host {

// Like vdlDebugSetLevels, but an empty list is wrong, and so are modules that have no name in this process: the process
// runs, so all its modules have their names. Returns an empty string, or what is wrong and which modules there are; in
// that case nothing has changed. From any thread.
std::string setLogLevels(const std::string& levels);

} // namespace host
