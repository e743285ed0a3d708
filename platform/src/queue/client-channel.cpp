#include "client-channel.h"

#include "base/error-text.h"
#include "base/guarded-call.h"
#include "log/log.h"

#include <boost/asio/post.hpp>
#include <chrono>
#include <exception>
#include <utility>

namespace host::io {

ClientChannel::ClientChannel(boost::asio::io_context& io, std::unique_ptr<Connector> connector,
                             const std::string& service_, const frame::MessageSet& messages,
                             std::size_t sendBufferBytes, const QueueLimits& limits,
                             frame::IOConnectionListener* listener)
    : Channel(io, service_, messages, sendBufferBytes, limits, false),
      connector_(std::move(connector)),
      listener_(listener),
      sharedOutbox_(std::make_shared<Outbox>(sendBufferBytes)),
      outbox_(sharedOutbox_.get()),
      retryTimer_(io),
      deadlineTimer_(io) {}

void ClientChannel::proceed() noexcept {
    if (std::exchange(idle_, false)) attempt();
    thread_safety::LockGuard lock(mutex_);
    if (!watching_ && !outbox_->empty()) watchDeadlines();
}

void ClientChannel::attempt() noexcept {
    try {
        connector_->connect(
            [this](std::unique_ptr<Stream> stream, const char* reason) { onAnswer(std::move(stream), reason); });
    } catch (const std::exception& error) { // no answer will come in this case
        failed(textOf(error));
    }
}

void ClientChannel::onAnswer(std::unique_ptr<Stream> stream, const char* reason) noexcept {
    std::shared_ptr<Connection> connection;
    try {
        if (!stream) return failed(("no connection to " + connector_->address() + ": " + reason).c_str());
        if (!stream->isOwn()) {
            count(counters.refused);
            return failed((connector_->address() + " is offered by another user's process").c_str());
        }
        connection = std::make_shared<Connection>(io_, std::move(stream), *this, sharedOutbox_);
    } catch (const std::exception& error) {
        return failed(textOf(error));
    }
    {
        thread_safety::LockGuard lock(mutex_);
        connection_ = connection;
    }
    connection->open();
}

void ClientChannel::onConnectionReady(Connection&) noexcept {
    retryDelay_.reset();
    lastReason_.clear();
    setFailure("");
    HOST_LOG(io, vdlDebugProgress, "service %s: connected\n", service.c_str());
    notify([](frame::IOConnectionListener& listener) { listener.onIOConnectionConnected(); });
}

void ClientChannel::onConnectionClosed(Connection&, bool wasReady, bool fault, const char* reason) noexcept {
    {
        thread_safety::LockGuard lock(mutex_);
        connection_.reset();
        logRefusals(*outbox_); // the outbox may have become empty by dropping a partly sent message
        // Every message may wait the whole time for a connection, counted from the end of this one.
        if (wasReady) outbox_->setDeadlines(std::chrono::steady_clock::now() + limits_.wait);
        if (!outbox_->empty() && !std::exchange(watching_, true)) watchDeadlines();
    }
    if (!wasReady) return failed(reason);
    setFailure(reason);
    HOST_LOG(io, fault ? vdlDebugFailure : vdlDebugWarning, "service %s: disconnected: %s\n", service.c_str(), reason);
    notify([](frame::IOConnectionListener& listener) { listener.onIOConnectionDisconnected(); });
    retryLater();
}

void ClientChannel::setFailure(const char* failure) noexcept {
    thread_safety::LockGuard lock(mutex_);
    try {
        failure_ = failure;
    } catch (const std::exception& error) {
        failure_.assign(textOf(error), 0, failure_.capacity()); // as much as fits without allocating
    }
}

std::string ClientChannel::failure() {
    thread_safety::LockGuard lock(mutex_);
    return failure_;
}

void ClientChannel::failed(const char* reason) noexcept {
    setFailure(reason);
    logOnce(reason);
    notify([](frame::IOConnectionListener& listener) { listener.onIOConnectionConnectionFailed(); });
    retryLater();
}

void ClientChannel::logOnce(const char* reason) noexcept {
    if (lastReason_ == reason) return;
    HOST_LOG(io, vdlDebugFailure, "service %s: %s\n", service.c_str(), reason);
    try {
        lastReason_ = reason;
    } catch (const std::exception&) { // it is logged again
        lastReason_.clear();
    }
}

void ClientChannel::retryLater() noexcept {
    try {
        retryTimer_.expires_after(retryDelay_.next());
        retryTimer_.async_wait([this](const boost::system::error_code& error) {
            if (!error) attempt();
        });
    } catch (const std::exception&) {
        idle_ = true;
        proceedLater();
    }
}

int ClientChannel::dispatch(const Outgoing& message, const frame::TransportInfo* transport) {
    Connection* connection = ready() ? connection_.get() : nullptr;
    if (transport && (!connection || connection->number() != transport->connection))
        return refuse(-107, message.meta, "no such connection");
    if (!connection && !watching_) {
        // Done first, because it may run out of memory. Posted, because the caller, who holds the mutex, may be on the
        // receiving thread.
        boost::asio::post(io_, [this] {
            thread_safety::LockGuard lock(mutex_);
            watchDeadlines();
        });
        watching_ = true;
    }
    return put(message, *outbox_, connection, Room::all);
}

// On the receiving thread: drops messages that have waited too long and sets the timer for the others.
void ClientChannel::watchDeadlines() noexcept {
    watching_ = false;
    if (ready()) return;
    if (const auto dropped = outbox_->dropExpired(std::chrono::steady_clock::now())) {
        count(counters.dropped, dropped);
        HOST_LOG(io, vdlDebugFailure, "service %s: %zu messages dropped after %lld ms without a connection\n",
                 service.c_str(), dropped, static_cast<long long>(limits_.wait.count()));
        logRefusals(*outbox_);
    }
    if (outbox_->empty()) return;
    try {
        deadlineTimer_.expires_at(outbox_->firstDeadline());
        deadlineTimer_.async_wait([this](const boost::system::error_code& error) {
            if (error) return;
            thread_safety::LockGuard lock(mutex_);
            watchDeadlines();
        });
        watching_ = true;
    } catch (const std::exception&) {
        proceedLater();
    }
}

void ClientChannel::notify(void (*event)(frame::IOConnectionListener&)) noexcept {
    if (!listener_) return;
    guardedCall([&] { event(*listener_); },
                [&](const Thrown& thrown) {
                    HOST_LOG(io, vdlDebugFailure, "service %s: listener threw: %s\n", service.c_str(), thrown.what);
                });
}

void ClientChannel::addTo(frame::IOStatistics& statistics) {
    statistics.connected = ready();
    statistics.queued = outbox_->messages();
}

void ClientChannel::end() {
    thread_safety::LockGuard lock(mutex_);
    if (connection_) connection_->abandon();
    connection_.reset();
    count(counters.dropped, outbox_->dropAll());
    logRefusals(*outbox_);
}

} // namespace host::io
