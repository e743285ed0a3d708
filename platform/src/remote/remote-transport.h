// The transport between hosts: TLS 1.3 over TCP. Both sides prove their keys; a service accepts only the keys that its
// configuration names. Streams and all that belongs to them live on the message queue's receiving thread.
#pragma once

#include "io/transport.h"

#include <boost/asio/io_context.hpp>
#include <memory>
#include <string>

namespace host::remote {

struct Shared;

// Everything but endFarewell throws std::runtime_error.
class Transport {
public:
    // With the keys that the configuration names, which have to be there and fit.
    explicit Transport(boost::asio::io_context& io);

    // When the configuration has no key of the service, or its host does not exist, there is none.
    std::unique_ptr<io::Connector> connectorTo(const std::string& service, const std::string& endpoint);
    // When the configuration names no clients, or the address cannot be had, there is none.
    std::unique_ptr<io::Listener> listenerAt(const std::string& service, const std::string& endpoint);

    // Around the closing of all streams when the queue stops: what they have taken still reaches the peers, for which
    // these have half a second.
    void beginFarewell();
    void endFarewell() noexcept;

private:
    boost::asio::io_context& io_;
    const std::shared_ptr<Shared> shared_;
};

} // namespace host::remote
