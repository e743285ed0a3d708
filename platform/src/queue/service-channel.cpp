#include "service-channel.h"

#include "base/error-text.h"
#include "log/log.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <exception>
#include <malloc.h>
#include <new>
#include <utility>

namespace host::io {
namespace {
// Many more than are accepted at a time, so that a client that sends its hello right after connecting is never evicted.
constexpr std::size_t mostWithoutHello = 64;
// A client with more queued messages does not keep pace. With fewer, it may only not have been scheduled yet.
constexpr std::size_t manyWaiting = 64;
// A client that causes many messages to others pauses for pauseOfEach, and clients do so one after the other: many of
// them cause no more than one would. The pause goes on while messages get lost or answers get late otherwise, that is
// while a slow client receives its messages, but has a nearly full queue or may wait for an answer. It ends after
// longestPause: a client that reads slowly on purpose delays the others no longer, and one that has read nothing for
// that long only for pauseOfEach.
constexpr std::chrono::milliseconds pauseOfEach{20}, longestPause{1000};
// A client that has sent a message within this time may wait for an answer; requests are dropped after it.
constexpr std::chrono::seconds answerTime{5};
constexpr unsigned fewClients = 32; // fewer do not leave enough memory to release
} // namespace

ServiceChannel::ServiceChannel(boost::asio::io_context& io, std::unique_ptr<Listener> listener,
                               const std::string& service_, const frame::MessageSet& messages,
                               std::size_t sendBufferBytes, const QueueLimits& limits)
    : Channel(io, service_, messages, sendBufferBytes, limits, true),
      fullReason_("the service already has " + std::to_string(mostClients) + " clients"),
      listener_(std::move(listener)),
      memoryTimer_(io) {}

void ServiceChannel::proceed() noexcept {
    if (std::exchange(idle_, false)) listener_->listen(*this);
}

void ServiceChannel::onStalled(const char* reason) noexcept { // new clients wait in the listener
    idle_ = true;
    proceedLater();
    HOST_LOG(io, vdlDebugFailure, "service %s: cannot wait for clients: %s\n", service.c_str(), reason);
}

void ServiceChannel::onCannotAccept(const char* reason) noexcept {
    HOST_LOG(io, vdlDebugFailure, "service %s: cannot accept clients: %s\n", service.c_str(), reason);
}

void ServiceChannel::onClient(std::unique_ptr<Stream> stream) noexcept {
    if (!stream->isOwn()) return onRejected("a process of another user");
    // Before sending the hello: a client that receives one considers itself connected and would retry at once.
    if (const char* why = fullReason()) return onRejected(why);
    std::shared_ptr<Connection> client;
    try {
        client =
            std::make_shared<Connection>(io_, std::move(stream), *this, std::make_shared<Outbox>(sendBufferBytes_));
        thread_safety::LockGuard lock(mutex_);
        clients_.push_back(client);
    } catch (const std::exception& error) {
        return onRejected(textOf(error));
    }
    client->open();
    evictWithoutHello();
}

void ServiceChannel::onAuthenticated(const char* who) noexcept {
    HOST_LOG(io, vdlDebugProgress, "service %s: %s\n", service.c_str(), who);
}

void ServiceChannel::onRejected(const char* reason) noexcept {
    releaseMemoryLater();
    count(counters.refused);
    HOST_LOG(io, vdlDebugFailure, "service %s: client rejected: %s\n", service.c_str(), reason);
}

// Otherwise clients that connect and send nothing would use up the descriptors.
void ServiceChannel::evictWithoutHello() {
    const auto hasNoHello = [](const auto& client) { return client->awaitsHello(); };
    const auto& clients = ownClients();
    const auto silent = std::count_if(clients.begin(), clients.end(), hasNoHello);
    if (static_cast<std::size_t>(silent) <= mostWithoutHello) return;
    char why[64];
    std::snprintf(why, sizeof why, "peer sent no hello while %zu others connected", mostWithoutHello);
    (*std::find_if(clients.begin(), clients.end(), hasNoHello))->reject(why);
}

// The C library would keep the memory of many clients for later, tens of mebibytes after many handshakes.
void ServiceChannel::releaseMemoryLater() noexcept {
    if (++gone_ == fewClients) releaseMemoryInASecond();
}

// And again while clients leave: otherwise the memory of the last ones would be kept.
void ServiceChannel::releaseMemoryInASecond() noexcept {
#ifdef __GLIBC__
    try {
        memoryTimer_.expires_after(std::chrono::seconds(1));
        memoryTimer_.async_wait([this, before = gone_](const boost::system::error_code& canceled) {
            if (canceled) return;
            malloc_trim(0);
            if (gone_ != before) return releaseMemoryInASecond();
            gone_ = 0;
        });
    } catch (const std::exception&) { // out of memory
        gone_ = 0;
    }
#endif
}

void ServiceChannel::onConnectionReady(Connection& client) noexcept {
    HOST_LOG(io, vdlDebugProgress, "service %s: client %llu connected\n", service.c_str(),
             static_cast<unsigned long long>(client.number()));
}

void ServiceChannel::onConnectionClosed(Connection& client, bool wasReady, bool fault, const char* reason) noexcept {
    releaseMemoryLater();
    const char* what = wasReady ? "disconnected" : fault ? "rejected" : "disconnected before its hello";
    const auto number = static_cast<unsigned long long>(client.number());
    // Two kinds of lines with separate limits, so that normal disconnections do not suppress lines about faults.
    if (fault)
        HOST_LOG(io, vdlDebugFailure, "service %s: client %llu %s: %s\n", service.c_str(), number, what, reason);
    else
        HOST_LOG(io, vdlDebugProgress, "service %s: client %llu %s: %s\n", service.c_str(), number, what, reason);
    thread_safety::LockGuard lock(mutex_);
    count(counters.dropped, client.outbox().dropAll());
    logRefusals(client.outbox());
    clients_.erase(std::find_if(clients_.begin(), clients_.end(), [&](const auto& c) { return c.get() == &client; }));
}

const char* ServiceChannel::fullReason() const noexcept {
    const auto isReady = [](const auto& client) { return !client->awaitsHello(); };
    const auto ready = std::count_if(ownClients().begin(), ownClients().end(), isReady);
    return static_cast<std::size_t>(ready) < mostClients ? nullptr : fullReason_.c_str();
}

std::vector<std::uint64_t> ServiceChannel::clients() {
    thread_safety::LockGuard lock(mutex_);
    std::vector<std::uint64_t> numbers;
    for (const auto& client : clients_)
        if (client->ready()) numbers.push_back(client->number());
    return numbers;
}

std::chrono::milliseconds ServiceChannel::pauseAfter(std::chrono::milliseconds paused, const Connection& connection) {
    const auto now = std::chrono::steady_clock::now();
    bool isSlow = false, goesOn = false;
    {
        thread_safety::LockGuard lock(mutex_);
        for (const auto& client : clients_) {
            const Outbox& outbox = client->outbox();
            if (client.get() == &connection || outbox.messages() <= manyWaiting) continue;
            isSlow = true;
            const bool mayWait = now - client->lastHandled() < answerTime;
            goesOn = goesOn || ((isNearlyFull(outbox) || mayWait) && now - client->lastWritable() < longestPause);
        }
    }
    if (!isSlow) return {};
    if (paused.count() > 0) return goesOn && paused < longestPause ? pauseOfEach : std::chrono::milliseconds{};
    pausesEnd_ = std::min(std::max(pausesEnd_, now) + pauseOfEach, now + longestPause);
    return std::chrono::ceil<std::chrono::milliseconds>(pausesEnd_ - now);
}

int ServiceChannel::dispatch(const Outgoing& message, const frame::TransportInfo* transport) {
    if (transport) {
        for (const auto& client : clients_)
            if (client->number() == transport->connection && client->ready())
                return put(message, client->outbox(), client.get(), Room::all);
        return refuse(-107, message.meta, "no such connection");
    }
    const auto isReady = [](const auto& client) { return client->ready(); };
    const bool several = std::count_if(clients_.begin(), clients_.end(), isReady) > 1;
    Bytes frame;
    const Outgoing once{message.ids, message.meta, message.plan, message.payload, several ? &frame : nullptr};
    // A client whose queue is full, or for which memory runs out, must not keep the message from other clients.
    std::size_t taken = 0, lost = 0;
    int result = 0;
    for (const auto& client : clients_) {
        if (!client->ready()) continue;
        try {
            const int status = put(once, client->outbox(), client.get(), Room::allButTheAnswers);
            if (status == 0)
                ++taken;
            else
                result = status;
        } catch (const std::bad_alloc&) {
            ++lost;
        }
    }
    if (taken == 0 && lost > 0) throw std::bad_alloc();
    if (lost > 0) {
        count(counters.refused, lost);
        HOST_LOG(io, vdlDebugFailure, "service %s: message 0x%08x refused for %zu clients: out of memory\n",
                 service.c_str(), message.meta.messageId, lost);
    }
    return taken > 0 ? 0 : result;
}

std::size_t ServiceChannel::mostBytes(const Outbox& outbox) const {
    if (outbox.bytes() <= bytesOfEach) return limits_.bytes;
    std::size_t all = 0;
    for (const auto& client : clients_) all += client->outbox().bytes();
    return all <= queuesOfAll * limits_.bytes ? limits_.bytes : std::min(bytesOfEach, limits_.bytes);
}

void ServiceChannel::addTo(frame::IOStatistics& statistics) {
    for (const auto& client : clients_) {
        statistics.connected = statistics.connected || client->ready();
        statistics.queued += client->outbox().messages();
    }
}

void ServiceChannel::end() {
    thread_safety::LockGuard lock(mutex_);
    for (const auto& client : clients_) {
        count(counters.dropped, client->outbox().dropAll());
        logRefusals(client->outbox());
        client->abandon();
    }
    clients_.clear();
    listener_.reset();
}

} // namespace host::io
