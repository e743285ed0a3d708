#include "io/server-door.h"

#include "io/log.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <exception>
#include <mutex>
#include <new>
#include <system_error>
#include <utility>

namespace host::io {
namespace {
// Until descriptors or memory may be there again.
constexpr std::chrono::milliseconds acceptRetry{100};
// At a time, whether they are let in or not: between them those that are there already are served, however fast others
// come.
constexpr int mostAtOnce = 16;
// Many more than are accepted at a time, so that who speaks as it comes is always heard.
constexpr std::size_t mostAwaited = 64;
} // namespace

ServerDoor::ServerDoor(boost::asio::io_context& io, std::unique_ptr<Listener> listener, const std::string& service_,
                       const frame::MessageSet& messages, std::size_t sendBufferBytes, const QueueLimits& limits)
    : Door(io, service_, messages, sendBufferBytes, limits, true),
      whyFull_("the service has its " + std::to_string(mostClients) + " clients already"),
      listener_(std::move(listener)),
      retryTimer_(io) {}

void ServerDoor::takeUp() noexcept {
    if (std::exchange(idle_, false)) acceptClients();
}

void ServerDoor::acceptClients() noexcept {
    try {
        acceptSome();
    } catch (const std::exception& error) { // those that come wait in the listener
        idle_ = true;
        proceedLater();
        IO_LOG_LIMITED(*this, vdlDebugFailure, "service %s: cannot wait for clients: %s\n", service.c_str(),
                       textOf(error));
    }
}

void ServerDoor::acceptSome() {
    std::error_code error;
    for (int i = 0; i < mostAtOnce && acceptOne(error); ++i) {
    }
    if (!error) {
        lastReason_.clear();
        return listener_->wait([this] { acceptClients(); });
    }
    logOnce(("cannot accept clients: " + error.message()).c_str());
    retryTimer_.expires_after(acceptRetry);
    retryTimer_.async_wait([this](const boost::system::error_code& canceled) {
        if (!canceled) acceptClients();
    });
}

// Returns whether another one may be waiting.
bool ServerDoor::acceptOne(std::error_code& error) {
    std::unique_ptr<Stream> stream;
    try {
        stream = listener_->accept(error);
    } catch (const std::exception& lost) {
        turnAway(textOf(lost));
        return true;
    }
    if (!stream) return false;
    if (const auto client = admit(std::move(stream))) {
        client->open();
        makeWayForOthers();
    }
    return true;
}

std::shared_ptr<Connection> ServerDoor::admit(std::unique_ptr<Stream> stream) {
    if (!stream->isOwn()) {
        turnAway("a process of another user");
        return nullptr;
    }
    if (const char* why = whyFull()) { // now, as who hears a hello takes itself for connected and tries again at once
        turnAway(why);
        return nullptr;
    }
    try {
        auto client =
            std::make_shared<Connection>(io_, std::move(stream), *this, std::make_shared<Outbox>(sendBufferBytes_));
        std::lock_guard lock(mutex);
        clients_.push_back(client);
        return client;
    } catch (const std::exception& error) {
        turnAway(textOf(error));
        return nullptr;
    }
}

// Those that come and say nothing would else keep descriptors from those that do.
void ServerDoor::makeWayForOthers() {
    const auto isAwaited = [](const auto& client) { return client->awaitsHello(); };
    const auto awaited = std::count_if(clients_.begin(), clients_.end(), isAwaited);
    if (static_cast<std::size_t>(awaited) <= mostAwaited) return;
    char why[64];
    std::snprintf(why, sizeof why, "peer sent no hello while %zu others came", mostAwaited);
    (*std::find_if(clients_.begin(), clients_.end(), isAwaited))->turnAway(why);
}

void ServerDoor::turnAway(const char* why) {
    count(counters.refused);
    IO_LOG_LIMITED(*this, vdlDebugFailure, "service %s: client turned away: %s\n", service.c_str(), why);
}

void ServerDoor::onConnectionReady(Connection& client) noexcept {
    IO_LOG_LIMITED(*this, vdlDebugProgress, "service %s: client %llu connected\n", service.c_str(),
                   static_cast<unsigned long long>(client.number()));
}

void ServerDoor::onConnectionClosed(Connection& client, bool wasReady, bool fault, const char* reason) noexcept {
    const char* what = wasReady ? "disconnected" : fault ? "turned away" : "left before its hello";
    const auto number = static_cast<unsigned long long>(client.number());
    // Two kinds, so that peers which come and go bury none that is at fault.
    if (fault)
        IO_LOG_LIMITED(*this, vdlDebugFailure, "service %s: client %llu %s: %s\n", service.c_str(), number, what,
                       reason);
    else
        IO_LOG_LIMITED(*this, vdlDebugProgress, "service %s: client %llu %s: %s\n", service.c_str(), number, what,
                       reason);
    std::lock_guard lock(mutex);
    count(counters.dropped, client.outbox().dropAll());
    tellRefusals(client.outbox());
    clients_.erase(std::find_if(clients_.begin(), clients_.end(), [&](const auto& c) { return c.get() == &client; }));
}

const char* ServerDoor::whyFull() const noexcept {
    const auto isReady = [](const auto& client) { return !client->awaitsHello(); };
    const auto ready = std::count_if(clients_.begin(), clients_.end(), isReady);
    return static_cast<std::size_t>(ready) < mostClients ? nullptr : whyFull_.c_str();
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
    // One client's full queue, or the want of memory for one, is no reason for the others to go without.
    std::size_t taken = 0, lost = 0;
    int result = 0;
    for (const auto& client : clients_) {
        if (!client->ready()) continue;
        try {
            const int one = put(message, client->outbox(), client.get());
            if (one == 0)
                ++taken;
            else
                result = one;
        } catch (const std::bad_alloc&) {
            ++lost;
        }
    }
    if (taken == 0 && lost > 0) throw std::bad_alloc();
    if (lost > 0) {
        count(counters.refused, lost);
        IO_LOG_LIMITED(*this, vdlDebugFailure, "service %s: message 0x%08x refused for %zu clients: out of memory\n",
                       service.c_str(), message.meta.messageId, lost);
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
