// Streams to peers that have proven their keys.
#pragma once

#include "io/transport.h"
#include "remote/common.h"
#include "remote/tls.h"

#include <boost/asio/ip/tcp.hpp>
#include <memory>
#include <string>

namespace host::remote {

// A stream over a session whose handshake is done. It holds the peer's key, of which the service counts the holders,
// until it is closed. Throws std::bad_alloc.
std::unique_ptr<io::Stream> makeStream(std::shared_ptr<Common> common, boost::asio::ip::tcp::socket socket,
                                       std::unique_ptr<Session> session, std::shared_ptr<const std::string> key);

} // namespace host::remote
