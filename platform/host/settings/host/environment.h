// The folders of a process of the host platform and the endpoints of services, from its environment.
#pragma once

#include <host/folders.h>
#include <host/process-name.h>

#include <string>

namespace host {

// The endpoint of a service: the setting endpoints.<service>, a path or "tcp://HOST:PORT", else the socket <runtime
// folder>/<service>.sock. Throws ConfigurationError, and std::runtime_error when that socket's path is too long for a
// socket address.
std::string endpointOf(const std::string& service);

// The socket of a process's debug shell: <runtime folder>/<process name>.shell. Its lock file, like a service's, is
// beside it: "<socket>.lock".
std::string shellEndpointOf(const std::string& processName);

} // namespace host
