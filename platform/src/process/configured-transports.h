// The local and the remote transport, chosen by a service's configured endpoint.
#pragma once

#include "transport/transports.h"

#include <boost/asio/io_context.hpp>
#include <memory>

namespace host {

std::unique_ptr<io::Transports> configuredTransports(boost::asio::io_context& io);

} // namespace host
