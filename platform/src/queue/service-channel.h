// The channel of a service that this process offers: any number of clients.
#pragma once

#include "channel.h"
#include "connection.h"
#include "transport/transport.h"

#include <boost/asio/steady_timer.hpp>
#include <memory>
#include <string>
#include <vector>

namespace host::io {

// Clients that have said their hello; who comes then is rejected. A receiver has one or two. With those that have still
// to say it (64, see mostAwaited) and those from other hosts that are in their handshake (a quarter of the descriptors,
// 256 at most, see mostHandshakes), all fit into the 1024 descriptors that a process usually has.
inline constexpr std::size_t mostClients = 256;
// What may wait for all clients together, in queues of the configured size. When so much waits, as for clients that do
// not read, each client may still have bytesOfEach waiting.
inline constexpr std::size_t queuesOfAll = 4, bytesOfEach = 1024 * 1024;

class ServiceChannel final : public Channel, private ListenerUser {
public:
    ServiceChannel(boost::asio::io_context& io, std::unique_ptr<Listener> listener, const std::string& service,
                   const frame::MessageSet& messages, std::size_t sendBufferBytes, const QueueLimits& limits);

    void proceed() noexcept override;
    void end() override TVSA_EXCLUDES(mutex_);
    std::vector<std::uint64_t> clients() override TVSA_EXCLUDES(mutex_);
    void onConnectionReady(Connection& connection) noexcept override;
    bool othersAreBehind(const Connection& connection) override TVSA_EXCLUDES(mutex_);
    const char* whyFull() const noexcept override;
    void onConnectionClosed(Connection& connection, bool wasReady, bool fault, const char* reason) noexcept override;

protected:
    int dispatch(const Outgoing& message, const frame::TransportInfo* transport) override TVSA_REQUIRES(mutex_);
    std::size_t mostBytes(const Outbox& outbox) const override TVSA_REQUIRES(mutex_);
    void addTo(frame::IOStatistics& statistics) override TVSA_REQUIRES(mutex_);

private:
    void onClient(std::unique_ptr<Stream> stream) noexcept override;
    void onProven(const char* who) noexcept override;
    void onRejected(const char* reason) noexcept override;
    void onCannotAccept(const char* reason) noexcept override;
    void onStalled(const char* reason) noexcept override;
    void evictAwaited();
    // The clients without the mutex: on the receiving thread, which alone changes them.
    const std::vector<std::shared_ptr<Connection>>& ownClients() const noexcept TVSA_NO_THREAD_SAFETY_ANALYSIS {
        return clients_;
    }
    void giveMemoryBackLater() noexcept;

    const std::string whyFull_;
    std::unique_ptr<Listener> listener_; // until the end
    bool idle_ = true;                   // the receiving thread's: nothing is awaited that would make it accept
    boost::asio::steady_timer memoryTimer_;
    unsigned gone_ = 0; // clients since memory was given back last
    // As they came, at most mostClients + mostAwaited + 1.
    std::vector<std::shared_ptr<Connection>> clients_ TVSA_GUARDED_BY(mutex_);
};

} // namespace host::io
