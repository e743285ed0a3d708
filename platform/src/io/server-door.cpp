#include "io/server-door.h"

#include "io/log.h"

#include <host/environment.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <exception>
#include <mutex>
#include <system_error>

namespace host::io {
namespace {
// Until descriptors or memory may be there again.
constexpr std::chrono::milliseconds acceptRetry{100};
} // namespace

ServerDoor::ServerDoor(boost::asio::io_context& io, const std::string& service_, const frame::MessageSet& messages,
                       std::size_t sendBufferBytes, const QueueLimits& limits)
    : Door(io, service_, messages, sendBufferBytes, limits, true),
      endpoint_(std::make_unique<Endpoint>(service_, endpointOf(service_))),
      acceptor_(io, endpoint_->descriptor()),
      retryTimer_(io) {}

ServerDoor::~ServerDoor() {
    if (acceptor_.is_open()) acceptor_.release();
}

void ServerDoor::waitForClients() {
    acceptor_.async_wait(acceptor_.wait_read, [this](const boost::system::error_code& error) {
        if (!error) acceptClients();
    });
}

void ServerDoor::acceptClients() {
    for (;;) {
        const int socket = endpoint_->accept();
        if (socket >= 0) {
            admit(socket);
        } else if (socket == -EAGAIN) {
            lastReason_.clear();
            return waitForClients();
        } else if (socket != -EINTR && socket != -ECONNABORTED) {
            logOnce("cannot accept clients: " + std::system_category().message(-socket));
            retryTimer_.expires_after(acceptRetry);
            retryTimer_.async_wait([this](const boost::system::error_code& error) {
                if (!error) acceptClients();
            });
            return;
        }
    }
}

void ServerDoor::admit(int socket) {
    std::shared_ptr<Connection> client;
    try {
        client = std::make_shared<Connection>(io_, socket, *this, std::make_shared<Outbox>(sendBufferBytes_));
        if (!client->own()) {
            count(counters.refused);
            IO_LOG(vdlDebugFailure, "service %s: client turned away: a process of another user\n", service.c_str());
            return;
        }
        std::lock_guard lock(mutex);
        clients_.push_back(client);
    } catch (const std::exception& error) {
        count(counters.refused);
        IO_LOG(vdlDebugFailure, "service %s: client turned away: %s\n", service.c_str(), error.what());
        return;
    }
    client->open();
}

void ServerDoor::onConnectionReady(Connection& client) {
    IO_LOG(vdlDebugProgress, "service %s: client %llu connected\n", service.c_str(),
           static_cast<unsigned long long>(client.number()));
}

void ServerDoor::onConnectionClosed(Connection& client, bool wasReady, bool fault, const std::string& reason) {
    const char* what = wasReady ? "disconnected" : fault ? "turned away" : "left before its hello";
    IO_LOG(fault ? vdlDebugFailure : vdlDebugProgress, "service %s: client %llu %s: %s\n", service.c_str(),
           static_cast<unsigned long long>(client.number()), what, reason.c_str());
    std::lock_guard lock(mutex);
    count(counters.dropped, client.outbox().dropAll());
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
        client->abandon();
    }
    clients_.clear();
    acceptor_.release();
    endpoint_.reset();
}

} // namespace host::io
