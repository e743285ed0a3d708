#pragma once

namespace tvtest {

// Makes a folder for this process's state, which is removed when the process ends, after the run log is stored. To be
// called before the run log is used. Throws std::system_error.
void setPrivateStateFolder();

} // namespace tvtest
