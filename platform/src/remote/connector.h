// The way to a service on another host.
#pragma once

#include "io/transport.h"
#include "remote/common.h"
#include "remote/endpoint.h"

#include <boost/asio/io_context.hpp>
#include <memory>
#include <string>

namespace host::remote {

// Throws std::runtime_error when the host does not exist.
std::unique_ptr<io::Connector> makeConnectorTo(boost::asio::io_context& io, std::shared_ptr<Common> common,
                                               const std::string& service, const std::string& endpoint,
                                               const std::string& serviceKey);

} // namespace host::remote
