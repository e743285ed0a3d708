// Where services on other hosts are: "tcp://HOST:PORT", HOST being a name, an address (one with colons in brackets) or,
// where the service is offered, "*" for every address of this machine.
#pragma once

#include <string>

namespace host {

// Whether an endpoint is on a network; all others are paths of sockets.
bool isRemote(const std::string& endpoint);

// What is wrong with an endpoint as it is written, or an empty string: neither "tcp://HOST:PORT" nor a path that the
// address of a socket can hold. Asks nobody, so that it need not be there.
std::string problemOfEndpoint(const std::string& endpoint);

struct Place {
    std::string host; // without brackets
    std::string port;
};

// The parts of an endpoint on a network. Throws std::runtime_error, as the next does, whose text begins with the
// service: when the endpoint is none, or its port is below the lowest.
Place placeOf(const std::string& service, const std::string& endpoint, unsigned lowestPort = 0);

// Where a service is offered, in numbers, or at "*". With what this throws a process that serves it would end: besides
// the above when the host has no address, or when its address is not one of this machine's.
Place placeToServeAt(const std::string& service, const std::string& endpoint);

// Every address of this machine, as the host of a place.
bool isEveryAddress(const std::string& host);

} // namespace host
