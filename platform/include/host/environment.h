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

// Where a service is: what the setting endpoints.<service> says, a path or "tcp://HOST:PORT", else the socket
// <runtime folder>/<service>.sock. Throws ConfigurationError, and std::runtime_error when that socket's path is longer
// than an address of a socket takes.
std::string endpointOf(const std::string& service);

// The socket of a process's debug shell: <runtime folder>/<process name>.shell. Its lock file, like a service's, is
// beside it: "<socket>.lock".
std::string shellEndpointOf(const std::string& processName);

// The name under which this process is known to others ("frame-host", "tvserviced"); the program's base name at first.
std::string processName();
void setProcessName(const std::string& name);

} // namespace host
