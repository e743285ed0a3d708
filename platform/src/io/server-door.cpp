#include "io/server-door.h"

#include "io/log.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <mutex>
#include <system_error>
#include <utility>

namespace host::io {
namespace {
// Until descriptors or memory may be there again.
constexpr std::chrono::milliseconds acceptRetry{100};
// At a time: between them those that are there already are served, however fast others come.
constexpr int mostAtOnce = 16;
// Many more than are accepted at a time, so that who speaks as it comes is always heard.
constexpr std::size_t mostAwaited = 64;
} // namespace

ServerDoor::ServerDoor(boost::asio::io_context& io, std::unique_ptr<Listener> listener, const std::string& service_,
                       const frame::MessageSet& messages, std::size_t sendBufferBytes, const QueueLimits& limits)
    : Door(io, service_, messages, sendBufferBytes, limits, true), listener_(std::move(listener)), retryTimer_(io) {
    newcomers_.reserve(mostAwaited + 1);
}

void ServerDoor::waitForClients() {
    listener_->wait([this] { acceptClients(); });
}

void ServerDoor::acceptClients() {
    std::error_code error;
    for (int i = 0; i < mostAtOnce; ++i) {
        auto stream = nextClient(error);
        if (!stream) break;
        if (const auto client = admit(std::move(stream))) {
            client->open();
            awaitHelloOf(client);
        }
    }
    if (!error) {
        lastReason_.clear();
        return waitForClients();
    }
    logOnce("cannot accept clients: " + error.message());
    retryTimer_.expires_after(acceptRetry);
    retryTimer_.async_wait([this](const boost::system::error_code& canceled) {
        if (!canceled) acceptClients();
    });
}

std::unique_ptr<Stream> ServerDoor::nextClient(std::error_code& error) {
    for (;;) {
        try {
            return listener_->accept(error);
        } catch (const std::exception& lost) {
            turnAway(lost.what());
        }
    }
}

std::shared_ptr<Connection> ServerDoor::admit(std::unique_ptr<Stream> stream) {
    if (!stream->isOwn()) {
        turnAway("a process of another user");
        return nullptr;
    }
    try {
        auto client =
            std::make_shared<Connection>(io_, std::move(stream), *this, std::make_shared<Outbox>(sendBufferBytes_));
        std::lock_guard lock(mutex);
        clients_.push_back(client);
        return client;
    } catch (const std::exception& error) {
        turnAway(error.what());
        return nullptr;
    }
}

// Those that come and say nothing would else keep descriptors from those that do.
void ServerDoor::awaitHelloOf(const std::shared_ptr<Connection>& client) {
    newcomers_.push_back(client);
    if (newcomers_.size() <= mostAwaited) return;
    std::erase_if(newcomers_, [](const auto& newcomer) {
        const auto known = newcomer.lock();
        return !known || !known->awaitsHello();
    });
    if (newcomers_.size() <= mostAwaited) return;
    if (const auto oldest = newcomers_.front().lock())
        oldest->turnAway("peer sent no hello while " + std::to_string(mostAwaited) + " others came");
    newcomers_.erase(newcomers_.begin());
}

void ServerDoor::turnAway(const char* why) {
    count(counters.refused);
    IO_LOG_LIMITED(*this, vdlDebugFailure, "service %s: client turned away: %s\n", service.c_str(), why);
}

void ServerDoor::onConnectionReady(Connection& client) {
    IO_LOG_LIMITED(*this, vdlDebugProgress, "service %s: client %llu connected\n", service.c_str(),
                   static_cast<unsigned long long>(client.number()));
}

void ServerDoor::onConnectionClosed(Connection& client, bool wasReady, bool fault, const std::string& reason) {
    const char* what = wasReady ? "disconnected" : fault ? "turned away" : "left before its hello";
    const auto number = static_cast<unsigned long long>(client.number());
    // Two kinds, so that peers which come and go bury none that is at fault.
    if (fault)
        IO_LOG_LIMITED(*this, vdlDebugFailure, "service %s: client %llu %s: %s\n", service.c_str(), number, what,
                       reason.c_str());
    else
        IO_LOG_LIMITED(*this, vdlDebugProgress, "service %s: client %llu %s: %s\n", service.c_str(), number, what,
                       reason.c_str());
    std::lock_guard lock(mutex);
    count(counters.dropped, client.outbox().dropAll());
    tellRefusals(client.outbox());
    clients_.erase(std::find_if(clients_.begin(), clients_.end(), [&](const auto& c) { return c.get() == &client; }));
}

std::vector<std::uint64_t> ServerDoor::clients() {
    std::lock_guard lock(mutex);
    std::vector<std::uint64_t> numbers;
    for (const auto& client : clients_)
        if (client->ready()) numbers.push_back(client->number());
    return numbers;
}

int ServerDoor::dispatch(const Outgoing& message, const frame::TransportInfo* transport) {
    if (transport) {
        for (const auto& client : clients_)
            if (client->number() == transport->connection && client->ready())
                return put(message, client->outbox(), client.get());
        return refuse(-107, message.meta, "no such connection");
    }
    // One client's full queue is no reason for the others to go without.
    std::size_t taken = 0;
    int result = 0;
    for (const auto& client : clients_) {
        if (!client->ready()) continue;
        const int one = put(message, client->outbox(), client.get());
        if (one == 0)
            ++taken;
        else
            result = one;
    }
    return taken > 0 ? 0 : result;
}

void ServerDoor::addTo(frame::IOStatistics& statistics) {
    for (const auto& client : clients_) {
        statistics.connected = statistics.connected || client->ready();
        statistics.queued += client->outbox().messages();
    }
}

void ServerDoor::end() {
    std::lock_guard lock(mutex);
    for (const auto& client : clients_) {
        count(counters.dropped, client->outbox().dropAll());
        tellRefusals(client->outbox());
        client->abandon();
    }
    clients_.clear();
    listener_.reset();
}

} // namespace host::io
