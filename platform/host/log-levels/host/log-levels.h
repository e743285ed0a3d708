// Debug levels: those that a command of a running process sets, and those that were set for no module.
#pragma once

#include <string>

namespace host {

// Like vdlDebugSetLevels, but an empty list is wrong, and so are modules that have no name in this process: the process
// runs, so all its modules have their names. Returns an empty string, or what is wrong and which modules there are; in
// that case nothing has changed. From any thread.
std::string setLogLevels(const std::string& levels);

// What is wrong with the levels set by name, by setting, option or command: no module of this process has the name, nor
// has one of a receiver's other processes, which have the same settings. Empty when nothing is. Call it once the
// process has started: its modules have their names then. From any thread.
std::string unknownLogModules();

} // namespace host
