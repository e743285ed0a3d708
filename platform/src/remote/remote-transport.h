// The transport between hosts: TLS 1.3 over TCP. Both sides prove their keys; a service accepts only the keys that its
// configuration names. Streams and all that belongs to them live on the message queue's receiving thread.
#pragma once

#include "io/transport.h"

#include <boost/asio/io_context.hpp>
#include <chrono>
#include <memory>
#include <string>

namespace host::remote {

struct Common;

// With the keys that the configuration names. Throws std::runtime_error when there are none or they are unfit.
std::shared_ptr<Common> makeCommon();

// The rest throws std::runtime_error, too: when the configuration has no key of the service or names no clients, when
// the host does not exist, or the address cannot be had.
std::unique_ptr<io::Connector> makeConnector(boost::asio::io_context& io, std::shared_ptr<Common> common,
                                             const std::string& service, const std::string& endpoint);
std::unique_ptr<io::Listener> makeListener(boost::asio::io_context& io, std::shared_ptr<Common> common,
                                           const std::string& service, const std::string& endpoint);

// Around the closing of all streams when the queue stops: what they have taken still reaches the peers, for which these
// have half a second. Neither throws.
void beginFarewell(Common& common);
void endFarewell(Common& common);

} // namespace host::remote
