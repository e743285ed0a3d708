// Endpoints as the library takes them: with addresses in the place of names.
#pragma once

#include <host/endpoint.h>

#include <string>

namespace host::remote {

// "tcp://HOST:PORT"
std::string textOf(const Place& place);

// The place with the first address of its host, in numbers, as host. Flags are those of getaddrinfo. Throws
// std::runtime_error, whose text begins with the service.
Place resolved(const std::string& service, const std::string& endpoint, const Place& place, int flags);

} // namespace host::remote
