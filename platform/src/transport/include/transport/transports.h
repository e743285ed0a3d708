// The transports of a process.
#pragma once

#include "transport/transport.h"

#include <atomic>
#include <boost/asio/io_context.hpp>
#include <memory>
#include <string>

namespace host::io {

// Chooses the transport of a service by its endpoint. From any thread, unless stated otherwise.
class Transports {
public:
    virtual ~Transports() = default;

    // Both throw std::runtime_error when the service cannot be reached or offered as configured.
    virtual std::unique_ptr<Connector> connectorTo(const std::string& service) = 0;
    virtual std::unique_ptr<Listener> listenerFor(const std::string& service) = 0;

    // Called before and after closing all streams when the queue stops, after the receiving thread has ended. Data that
    // the streams have accepted is still delivered to the peers.
    virtual void beginShutdown() = 0;
    virtual void endShutdown() noexcept = 0;
};

// Creates the transports of a message queue, whose streams run on the context's thread. Set once, before any queue is
// created, when the process is composed: a queue does not depend on particular transports.
extern std::atomic<std::unique_ptr<Transports> (*)(boost::asio::io_context&)> makeTransports;

} // namespace host::io
