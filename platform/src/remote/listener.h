// A service offered to other hosts.
#pragma once

#include "io/transport.h"
#include "remote/common.h"
#include "remote/endpoint.h"

#include <boost/asio/io_context.hpp>
#include <memory>
#include <set>
#include <string>

namespace host::remote {

// Accepts clients that prove one of the keys. The address may be that of every interface. Throws
// boost::system::system_error when it cannot be had.
std::unique_ptr<io::Listener> makeListenerAt(boost::asio::io_context& io, std::shared_ptr<Common> common,
                                             const std::string& service, const Address& address,
                                             const std::set<std::string>& clientKeys);

} // namespace host::remote
