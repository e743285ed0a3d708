// Checks lists of debug levels, beyond what vdlDebugSetLevels does.
#pragma once

#include <string>

namespace host {

// Which modules of a valid list of levels have no name in this process, in a sentence with those that have; empty when
// all are known. A module may be named later, and a list may be meant for other processes, too. From any thread.
std::string unknownLogModules(const std::string& levels);

} // namespace host
