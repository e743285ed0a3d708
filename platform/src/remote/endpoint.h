// The parts of an endpoint on a network, and the addresses behind its name.
#pragma once

#include <host/endpoint.h>

#include <string>

namespace host::remote {

struct Place {
    std::string host; // without brackets
    std::string port;
};

// The two parts of an endpoint. Throws std::runtime_error, as the next does, whose text begins with the service.
Place placeOf(const std::string& service, const std::string& endpoint, unsigned lowestPort);

// The first address of a place, in numbers; flags are those of getaddrinfo.
std::string resolved(const std::string& service, const std::string& endpoint, const Place& place, int flags);

} // namespace host::remote
