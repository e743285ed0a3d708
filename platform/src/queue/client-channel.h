// The channel to another process's service: one connection, which is re-established when it ends.
#pragma once

#include "channel.h"
#include "connection.h"
#include "retry-delay.h"
#include "transport/transport.h"

#include <frame/abstract-marshalling-impl.h>

#include <boost/asio/steady_timer.hpp>
#include <memory>
#include <string>

namespace host::io {

class ClientChannel final : public Channel {
public:
    ClientChannel(boost::asio::io_context& io, std::unique_ptr<Connector> connector, const std::string& service,
                  const frame::MessageSet& messages, std::size_t sendBufferBytes, const QueueLimits& limits,
                  frame::IOConnectionListener* listener);

    void proceed() noexcept override;
    void end() override TVSA_EXCLUDES(mutex_);
    void onConnectionReady(Connection& connection) noexcept override;
    void onConnectionClosed(Connection& connection, bool wasReady, bool fault, const char* reason) noexcept override;
    std::string failure() override TVSA_EXCLUDES(mutex_);

protected:
    int dispatch(const Outgoing& message, const frame::TransportInfo* transport) override TVSA_REQUIRES(mutex_);
    void addTo(frame::IOStatistics& statistics) override TVSA_REQUIRES(mutex_);

private:
    void attempt() noexcept;
    void onAnswer(std::unique_ptr<Stream> stream, const char* reason) noexcept;
    void failed(const char* reason) noexcept;
    void setFailure(const char* failure) noexcept TVSA_EXCLUDES(mutex_);
    // Logs why a connection failed, but not the same reason at every attempt.
    void logOnce(const char* reason) noexcept;
    void retryLater() noexcept;
    void watchDeadlines() noexcept TVSA_REQUIRES(mutex_);
    void notify(void (*event)(frame::IOConnectionListener&)) noexcept;
    bool ready() const TVSA_REQUIRES(mutex_) { return connection_ && connection_->ready(); }

    const std::unique_ptr<Connector> connector_;
    frame::IOConnectionListener* const listener_;
    const std::shared_ptr<Outbox> sharedOutbox_;      // outlives the connections
    Outbox* const outbox_ TVSA_PT_GUARDED_BY(mutex_); // the same object
    std::shared_ptr<Connection> connection_ TVSA_GUARDED_BY(mutex_);
    std::string failure_ TVSA_GUARDED_BY(mutex_);
    boost::asio::steady_timer retryTimer_, deadlineTimer_;
    RetryDelay retryDelay_;
    std::string lastReason_; // for logOnce
    bool idle_ = true;       // used by the receiving thread: no connection, and no pending event will make one
    bool watching_ TVSA_GUARDED_BY(mutex_) = false; // whether the deadline timer runs or is about to be started
};

} // namespace host::io
