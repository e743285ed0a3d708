// Endpoints as the library takes them: with addresses in the place of names.
#pragma once

#include <host/endpoint.h>

#include <string>

namespace host::remote {

// "tcp://HOST:PORT"
std::string textOf(const Place& place);

// The first address of a place, in numbers; one with colons is in brackets. Flags are those of getaddrinfo. Throws
// std::runtime_error, whose text begins with the service.
std::string resolved(const std::string& service, const std::string& endpoint, const Place& place, int flags);

} // namespace host::remote
