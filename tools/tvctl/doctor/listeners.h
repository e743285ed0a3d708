// Who listens at this machine's addresses.
#pragma once

#include <host/endpoint.h>

#include <optional>
#include <sys/types.h>

namespace tvctl::doctor {

// Of a place in numbers.
unsigned portOf(const host::Place& place);

// Whose process of this machine listens at a place in numbers, as the system tells everybody: who knocks at such a door
// without a key is written down as a stranger. One that listens at every address does so at each of them.
std::optional<uid_t> listenerAt(const host::Place& place);

} // namespace tvctl::doctor
