// Where a process of the host platform keeps things, from its environment.
#pragma once

#include <string>

namespace host {

// The folder for sockets: $RUNTIME_DIRECTORY, else $XDG_RUNTIME_DIR/tvservice-adapter, else /tmp/tvservice-adapter-UID.
// Created 0700 when missing. Throws std::runtime_error, saying what is wrong, when it cannot be made, is not a folder,
// belongs to another user or is open to others.
std::string runtimeDirectory();

// The folder for lasting data: $STATE_DIRECTORY, else $XDG_STATE_HOME/tvservice-adapter, else
// $HOME/.local/state/tvservice-adapter. Created when missing; throws as above.
std::string stateDirectory();

// Where the two are, whether or not anything is there; nothing is made or checked. The second throws
// std::runtime_error when no variable names a place.
std::string runtimeDirectoryPath();
std::string stateDirectoryPath();

} // namespace host
