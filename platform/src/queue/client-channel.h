// The channel to another process's service: one connection, made and remade.
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
    void end() override;
    void onConnectionReady(Connection& connection) noexcept override;
    void onConnectionClosed(Connection& connection, bool wasReady, bool fault, const char* reason) noexcept override;
    std::string failure() override;

protected:
    int dispatch(const Outgoing& message, const frame::TransportInfo* transport) override;
    void addTo(frame::IOStatistics& statistics) override;

private:
    void attempt() noexcept;
    void onAnswer(std::unique_ptr<Stream> stream, const char* reason) noexcept;
    void failed(const char* reason) noexcept;
    void keep(const char* failure) noexcept;
    // Logs the reason why a connection did not come about, but not the same one at every attempt.
    void logOnce(const char* reason) noexcept;
    void retryLater() noexcept;
    void watchDeadlines() noexcept;
    void tell(void (frame::IOConnectionListener::*news)()) noexcept;
    bool ready() const { return connection_ && connection_->ready(); }

    const std::unique_ptr<Connector> connector_;
    frame::IOConnectionListener* const listener_;
    std::shared_ptr<Outbox> outbox_;         // outlives the connections
    std::shared_ptr<Connection> connection_; // guarded by the mutex
    std::string failure_;                    // guarded by the mutex
    boost::asio::steady_timer retryTimer_, deadlineTimer_;
    RetryDelay retryDelay_;
    std::string lastReason_; // for logOnce
    bool idle_ = true;       // the receiving thread's: no connection, and nothing is awaited that would bring one
    bool watching_ = false;  // whether the deadline timer runs or is about to; guarded by the mutex
};

} // namespace host::io
