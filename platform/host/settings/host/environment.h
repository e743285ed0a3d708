// Where a process of the host platform keeps things and where it finds services, from its environment.
#pragma once

#include <host/folders.h>
#include <host/process-name.h>

#include <string>

namespace host {

// Where a service is: what the setting endpoints.<service> says, a path or "tcp://HOST:PORT", else the socket
// <runtime folder>/<service>.sock. Throws ConfigurationError, and std::runtime_error when that socket's path is longer
// than an address of a socket takes.
std::string endpointOf(const std::string& service);

// The socket of a process's debug shell: <runtime folder>/<process name>.shell. Its lock file, like a service's, is
// beside it: "<socket>.lock".
std::string shellEndpointOf(const std::string& processName);

} // namespace host
