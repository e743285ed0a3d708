// Who listens at this machine's addresses.
#pragma once

#include <host/endpoint.h>

#include <optional>
#include <sys/types.h>

namespace tvctl::doctor {

// The port of a place whose host is an address, not a name.
unsigned portOf(const host::Place& place);

// The user whose process on this machine listens at a place whose host is an address. Read from the system's table of
// sockets, as connecting without a key would be logged as an unauthenticated peer. A process that listens at every
// address listens at each of them.
std::optional<uid_t> listenerAt(const host::Place& place);

} // namespace tvctl::doctor
