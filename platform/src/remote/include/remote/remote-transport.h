// The transport between hosts: TLS 1.3 over TCP. Both sides authenticate with their keys; a service accepts only the
// keys that it is given. Streams and everything that belongs to them run on the message queue's receiving thread.
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

// All functions except endShutdown throw std::runtime_error.
class Transport {
public:
    // keys: of this machine. heartbeat: the interval at which each side of a connection sends a sign of life.
    Transport(boost::asio::io_context& io, const KeyPair& keys, std::chrono::milliseconds heartbeat);

    // Connects to a service that authenticates with this key. Throws when the service's host does not exist.
    std::unique_ptr<io::Connector> connectorTo(const std::string& service, const std::string& endpoint,
                                               const std::string& key);
    // Listens at hostPort (see listenAddressOf) for clients that authenticate with one of these keys. Throws when the
    // address cannot be used.
    std::unique_ptr<io::Listener> listenerAt(const std::string& service, const std::string& endpoint,
                                             const HostPort& hostPort, const std::set<std::string>& clients);

    // Called before and after closing all streams when the queue stops: data that they have accepted is still delivered
    // to the peers, within half a second.
    void beginShutdown();
    void endShutdown() noexcept;

private:
    boost::asio::io_context& io_;
    const std::shared_ptr<Shared> shared_;
};

} // namespace host::remote
