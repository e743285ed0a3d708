// Where services on other hosts are: "tcp://HOST:PORT", HOST being a name, an address (one with colons in brackets) or,
// where the service is offered, "*" for every address of this machine.
#pragma once

#include <string>

namespace host {

// Whether an endpoint is on a network; all others are paths of sockets.
bool isRemote(const std::string& endpoint);

} // namespace host
