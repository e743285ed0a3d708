// The transports of a process.
#pragma once

#include "transport/transport.h"

#include <atomic>
#include <boost/asio/io_context.hpp>
#include <memory>
#include <string>

namespace host::io {

// Chooses a service's transport by where the service is. From any thread, unless it says otherwise.
class Transports {
public:
    virtual ~Transports() = default;

    // Both throw std::runtime_error when the service cannot be reached or offered as it is configured.
    virtual std::unique_ptr<Connector> connectorTo(const std::string& service) = 0;
    virtual std::unique_ptr<Listener> listenerFor(const std::string& service) = 0;

    // Around the closing of all streams when the queue stops, after the receiving thread has ended: what the streams
    // have taken still reaches the peers.
    virtual void beginFarewell() = 0;
    virtual void endFarewell() noexcept = 0;
};

// Makes the transports of a message queue, whose streams live on the context's thread. Set once, before there is a
// queue, by what puts the process together: a queue knows no transport by name.
extern std::atomic<std::unique_ptr<Transports> (*)(boost::asio::io_context&)> makeTransports;

} // namespace host::io
