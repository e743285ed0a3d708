// The transport between machines: CurveZMQ over tcp. Both sides prove their keys; a service lets in only the keys that
// its configuration names.
#pragma once

#include "io/transport.h"

#include <boost/asio/io_context.hpp>
#include <memory>
#include <string>

namespace host::remote {

class Relay;

// The relay of a process, with the keys that its configuration names. Throws std::runtime_error when there are none or
// they are not fit for use.
std::shared_ptr<Relay> makeRelay();

// The rest throws std::runtime_error, too: when the configuration has no key of the service or names no clients, when
// the host does not exist, or the address cannot be had.
std::unique_ptr<io::Connector> makeConnector(boost::asio::io_context& io, std::shared_ptr<Relay> relay,
                                             const std::string& service, const std::string& endpoint);
std::unique_ptr<io::Listener> makeListener(boost::asio::io_context& io, std::shared_ptr<Relay> relay,
                                           const std::string& service, const std::string& endpoint);

} // namespace host::remote
