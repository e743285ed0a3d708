// Endpoints of services on other hosts: "tcp://HOST:PORT". HOST is a name, an address (in brackets if it has colons)
// or, where the service is offered, "*" for all addresses of this machine.
#pragma once

#include <string>

namespace host {

// Whether an endpoint is a network address; all others are paths of sockets.
bool isRemote(const std::string& endpoint);

// Says why an endpoint is malformed, or returns an empty string: it must be "tcp://HOST:PORT", or a path that fits into
// a socket address. Checks the text only; host and path need not exist.
std::string problemOfEndpoint(const std::string& endpoint);

struct HostPort {
    std::string host; // without brackets
    std::string port;
};

// Splits a network endpoint. Throws std::runtime_error, whose text begins with the service, when the endpoint is
// malformed or its port is below lowestPort.
HostPort hostPortOf(const std::string& service, const std::string& endpoint, unsigned lowestPort = 0);

// The numeric address, or "*", at which to offer a service. Throws what hostPortOf throws, and std::runtime_error when
// the host has no address or the address is not one of this machine's: a process that offers the service would end with
// this error.
HostPort listenAddressOf(const std::string& service, const std::string& endpoint);

// Whether the host stands for all addresses of this machine.
bool isAnyAddress(const std::string& host);

} // namespace host
