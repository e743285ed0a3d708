// Local and remote transport, chosen by the endpoint that is configured for a service.
#pragma once

#include "transport/transports.h"

#include <boost/asio/io_context.hpp>
#include <memory>

namespace host {

std::unique_ptr<io::Transports> configuredTransports(boost::asio::io_context& io);

} // namespace host
