#include "io/client-door.h"

#include "io/log.h"

#include <boost/asio/post.hpp>
#include <chrono>
#include <exception>
#include <mutex>
#include <utility>

namespace host::io {

ClientDoor::ClientDoor(boost::asio::io_context& io, std::unique_ptr<Connector> connector, const std::string& service_,
                       const frame::MessageSet& messages, std::size_t sendBufferBytes, const QueueLimits& limits,
                       frame::IOConnectionListener* listener)
    : Door(io, service_, messages, sendBufferBytes, limits, false),
      connector_(std::move(connector)),
      listener_(listener),
      outbox_(std::make_shared<Outbox>(sendBufferBytes)),
      retryTimer_(io),
      deadlineTimer_(io) {}

void ClientDoor::attempt() {
    connector_->connect([this](std::unique_ptr<Stream> stream, const std::string& reason) {
        if (!stream) return failed("no connection to " + connector_->address() + ": " + reason);
        use(std::move(stream));
    });
}

void ClientDoor::use(std::unique_ptr<Stream> stream) {
    if (!stream->isOwn()) {
        count(counters.refused);
        return failed(connector_->address() + " is offered by another user's process");
    }
    std::shared_ptr<Connection> connection;
    try {
        connection = std::make_shared<Connection>(io_, std::move(stream), *this, outbox_);
    } catch (const std::exception& error) {
        return failed("no connection to " + connector_->address() + ": " + error.what());
    }
    {
        std::lock_guard lock(mutex);
        connection_ = connection;
    }
    connection->open();
}

void ClientDoor::onConnectionReady(Connection&) {
    retryDelay_.reset();
    lastReason_.clear();
    keep({});
    IO_LOG(vdlDebugProgress, "service %s: connected\n", service.c_str());
    tell(&frame::IOConnectionListener::onIOConnectionConnected);
}

void ClientDoor::onConnectionClosed(Connection&, bool wasReady, bool fault, const std::string& reason) {
    {
        std::lock_guard lock(mutex);
        connection_.reset();
        tellRefusals(*outbox_); // of which a message that the break cut short may have been the last
        // Every message has the whole time to wait for a connection, which it has had until now.
        if (wasReady) outbox_->setDeadlines(std::chrono::steady_clock::now() + limits_.wait);
        if (!outbox_->empty() && !std::exchange(watching_, true)) watchDeadlines();
    }
    if (!wasReady) return failed(reason);
    keep(reason);
    IO_LOG(fault ? vdlDebugFailure : vdlDebugWarning, "service %s: disconnected: %s\n", service.c_str(),
           reason.c_str());
    tell(&frame::IOConnectionListener::onIOConnectionDisconnected);
    retryLater();
}

void ClientDoor::keep(const std::string& failure) {
    std::lock_guard lock(mutex);
    failure_ = failure;
}

std::string ClientDoor::failure() {
    std::lock_guard lock(mutex);
    return failure_;
}

void ClientDoor::failed(const std::string& reason) {
    keep(reason);
    logOnce(reason);
    tell(&frame::IOConnectionListener::onIOConnectionConnectionFailed);
    retryLater();
}

void ClientDoor::retryLater() {
    retryTimer_.expires_after(retryDelay_.next());
    retryTimer_.async_wait([this](const boost::system::error_code& error) {
        if (!error) attempt();
    });
}

int ClientDoor::dispatch(const Outgoing& message, const frame::TransportInfo* transport) {
    Connection* connection = ready() ? connection_.get() : nullptr;
    if (transport && (!connection || connection->number() != transport->connection))
        return refuse(-107, message.meta, "no such connection");
    if (!connection && !watching_) {
        // First, as there may be no memory for it. Posted, as the caller, who holds the mutex, may be on the receiving
        // thread.
        boost::asio::post(io_, [this] {
            std::lock_guard lock(mutex);
            watchDeadlines();
        });
        watching_ = true;
    }
    return put(message, *outbox_, connection);
}

// On the receiving thread with the mutex held: gives up what has waited too long and comes back for what has not.
void ClientDoor::watchDeadlines() {
    watching_ = false;
    if (ready()) return;
    if (const auto dropped = outbox_->dropExpired(std::chrono::steady_clock::now())) {
        count(counters.dropped, dropped);
        IO_LOG(vdlDebugFailure, "service %s: %zu messages dropped after %lld ms without a connection\n",
               service.c_str(), dropped, static_cast<long long>(limits_.wait.count()));
        tellRefusals(*outbox_);
    }
    if (outbox_->empty()) return;
    watching_ = true;
    deadlineTimer_.expires_at(outbox_->firstDeadline());
    deadlineTimer_.async_wait([this](const boost::system::error_code& error) {
        if (error) return;
        std::lock_guard lock(mutex);
        watchDeadlines();
    });
}

void ClientDoor::tell(void (frame::IOConnectionListener::*news)()) {
    if (!listener_) return;
    try {
        (listener_->*news)();
    } catch (const std::exception& error) {
        IO_LOG(vdlDebugFailure, "service %s: listener threw: %s\n", service.c_str(), error.what());
    } catch (...) {
        IO_LOG(vdlDebugFailure, "service %s: listener threw\n", service.c_str());
    }
}

void ClientDoor::addTo(frame::IOStatistics& statistics) {
    statistics.connected = ready();
    statistics.queued = outbox_->messages();
}

void ClientDoor::end() {
    std::lock_guard lock(mutex);
    if (connection_) connection_->abandon();
    connection_.reset();
    count(counters.dropped, outbox_->dropAll());
    tellRefusals(*outbox_);
}

} // namespace host::io
