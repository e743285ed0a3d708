// The socket addresses of network endpoints.
#pragma once

#include <host/endpoint.h>

#include <boost/asio/ip/tcp.hpp>
#include <string>
#include <vector>

namespace host::net {

using Address = boost::asio::ip::tcp::endpoint;

// "tcp://ADDRESS:PORT", numeric.
std::string textOf(const Address& address);

// All addresses of the host, with the port: at least one. flags: those of getaddrinfo. May resolve a name, which can
// take many seconds. Throws std::runtime_error, whose text begins with the service.
std::vector<Address> addressesOf(const std::string& service, const std::string& endpoint, const HostPort& hostPort,
                                 int flags = 0);

} // namespace host::net
