// Who listens at this machine's addresses.
#pragma once

#include <host/endpoint.h>

namespace tvctl::doctor {

// Of a place in numbers.
unsigned portOf(const host::Place& place);

// Whether a process of this machine listens at a place in numbers, as the system tells everybody: who knocks at such a
// door without a key is written down as a stranger. One that listens at every address does so at each of them.
bool isListening(const host::Place& place);

} // namespace tvctl::doctor
