// Who listens at this machine's addresses.
#pragma once

#include <host/endpoint.h>

#include <optional>
#include <sys/types.h>

namespace tvctl::doctor {

// The port of a place. Its host must be an address, not a name.
unsigned portOf(const host::Place& place);

// The user whose process listens at a place on this machine. Its host must be an address; a process that listens at
// every address counts. Reads the system's table of sockets, because connecting without a key would be logged as an
// unauthenticated peer.
std::optional<uid_t> listenerAt(const host::Place& place);

} // namespace tvctl::doctor
