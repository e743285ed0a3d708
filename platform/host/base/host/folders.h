// The folders of a process of the host platform, from its environment.
#pragma once

#include <string>

namespace host {

// The folder for sockets: $RUNTIME_DIRECTORY, else $XDG_RUNTIME_DIR/tvservice-adapter, else /tmp/tvservice-adapter-UID.
// Created with mode 0700 if missing. Throws std::runtime_error, with the reason, when it cannot be created, is not a
// folder, belongs to another user or is open to others.
std::string runtimeDirectory();

// The folder for persistent data: $STATE_DIRECTORY, else $XDG_STATE_HOME/tvservice-adapter, else
// $HOME/.local/state/tvservice-adapter. Created if missing; throws as above.
std::string stateDirectory();

// The paths of the two folders, which need not exist; nothing is created or checked. stateDirectoryPath throws
// std::runtime_error when none of its variables is set.
std::string runtimeDirectoryPath();
std::string stateDirectoryPath();

} // namespace host
