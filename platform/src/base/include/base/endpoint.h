// The addresses of endpoints on a network.
#pragma once

#include <host/endpoint.h>

#include <boost/asio/ip/tcp.hpp>
#include <string>
#include <vector>

namespace host::net {

using Address = boost::asio::ip::tcp::endpoint;

// "tcp://ADDRESS:PORT", in numbers.
std::string textOf(const Address& address);

// All addresses of a place's host, with its port: at least one. Flags are those of getaddrinfo. May ask for a name,
// which can take many seconds. Throws std::runtime_error, whose text begins with the service.
std::vector<Address> addressesOf(const std::string& service, const std::string& endpoint, const Place& place,
                                 int flags = 0);

} // namespace host::net
