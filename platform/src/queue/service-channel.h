// The channel of a service that this process offers: any number of clients.
#pragma once

#include "channel.h"
#include "connection.h"
#include "transport/transport.h"

#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

namespace host::io {

// The maximum number of clients after the hello; further ones are rejected. A receiver has one or two. Together with
// clients before the hello (64, see mostWithoutHello) and clients from other hosts in their handshake (a quarter of the
// descriptors, at most 256, see mostHandshakes), they fit into the 1024 descriptors that a process usually has.
inline constexpr std::size_t mostClients = 256;
// The total that may be queued for all clients, as a multiple of queue.bytes. Beyond it, for example when clients do
// not read, each client may still have bytesOfEach queued.
inline constexpr std::size_t queuesOfAll = 4, bytesOfEach = 1024 * 1024;

class ServiceChannel final : public Channel, private ListenerUser {
public:
    ServiceChannel(boost::asio::io_context& io, std::unique_ptr<Listener> listener, const std::string& service,
                   const frame::MessageSet& messages, std::size_t sendBufferBytes, const QueueLimits& limits);

    void proceed() noexcept override;
    void end() override TVSA_EXCLUDES(mutex_);
    std::vector<std::uint64_t> clients() override TVSA_EXCLUDES(mutex_);
    void onConnectionReady(Connection& connection) noexcept override;
    std::chrono::milliseconds pauseAfter(std::chrono::milliseconds paused, const Connection& connection) override
        TVSA_EXCLUDES(mutex_);
    const char* fullReason() const noexcept override;
    void onConnectionClosed(Connection& connection, bool wasReady, bool fault, const char* reason) noexcept override;

protected:
    int dispatch(const Outgoing& message, const frame::TransportInfo* transport) override TVSA_REQUIRES(mutex_);
    std::size_t mostBytes(const Outbox& outbox) const override TVSA_REQUIRES(mutex_);
    void addTo(frame::IOStatistics& statistics) override TVSA_REQUIRES(mutex_);

private:
    void onClient(std::unique_ptr<Stream> stream) noexcept override;
    void onAuthenticated(const char* who) noexcept override;
    void onRejected(const char* reason) noexcept override;
    void onCannotAccept(const char* reason) noexcept override;
    void onStalled(const char* reason) noexcept override;
    void evictWithoutHello();
    // The clients without the mutex, for the receiving thread: only that thread changes them.
    const std::vector<std::shared_ptr<Connection>>& ownClients() const noexcept TVSA_NO_THREAD_SAFETY_ANALYSIS {
        return clients_;
    }
    void releaseMemoryLater() noexcept;
    void releaseMemoryInASecond() noexcept;

    const std::string fullReason_;
    std::unique_ptr<Listener> listener_; // until end
    bool idle_ = true;                   // used by the receiving thread: no pending event will make it accept clients
    boost::asio::steady_timer memoryTimer_;
    unsigned gone_ = 0; // clients that have left since memory was released and none followed
    std::chrono::steady_clock::time_point pausesEnd_; // the latest end of a first pause, see pauseAfter
    // Oldest first, at most mostClients + mostWithoutHello + 1.
    std::vector<std::shared_ptr<Connection>> clients_ TVSA_GUARDED_BY(mutex_);
};

} // namespace host::io
