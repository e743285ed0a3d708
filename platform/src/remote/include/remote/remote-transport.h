// The transport between hosts: TLS 1.3 over TCP. Both sides prove their keys; a service accepts only the keys that it
// is given. Streams and all that belongs to them live on the message queue's receiving thread.
#pragma once

#include "transport/transport.h"

#include <host/endpoint.h>
#include <host/keys.h>

#include <boost/asio/io_context.hpp>
#include <chrono>
#include <memory>
#include <set>
#include <string>

namespace host::remote {

struct Shared;

// Everything but endFarewell throws std::runtime_error.
class Transport {
public:
    // With this machine's keys. The heartbeat is how often each side of a connection gives a sign of life.
    Transport(boost::asio::io_context& io, const KeyPair& keys, std::chrono::milliseconds heartbeat);

    // To a service that proves this key. When its host does not exist, there is none.
    std::unique_ptr<io::Connector> connectorTo(const std::string& service, const std::string& endpoint,
                                               const std::string& key);
    // At the place to serve the endpoint at (see placeToServeAt), for clients that prove one of these keys. When the
    // address cannot be had, there is none.
    std::unique_ptr<io::Listener> listenerAt(const std::string& service, const std::string& endpoint,
                                             const Place& place, const std::set<std::string>& clients);

    // Around the closing of all streams when the queue stops: what they have taken still reaches the peers, for which
    // these have half a second.
    void beginFarewell();
    void endFarewell() noexcept;

private:
    boost::asio::io_context& io_;
    const std::shared_ptr<Shared> shared_;
};

} // namespace host::remote
