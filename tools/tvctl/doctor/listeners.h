// Who listens at this machine's addresses.
#pragma once

#include <host/endpoint.h>

#include <optional>
#include <sys/types.h>

namespace tvctl::doctor {

// The port; the host must be an address, not a name.
unsigned portOf(const host::HostPort& hostPort);

// The user whose process listens there on this machine. The host must be an address; a process that listens at every
// address counts. Reads the system's table of sockets, because connecting without a key would be logged as an
// unauthenticated peer.
std::optional<uid_t> listenerAt(const host::HostPort& hostPort);

} // namespace tvctl::doctor
