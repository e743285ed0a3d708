// Sends a service's messages to its clients.
#pragma once

#include <frame/omq-io-module.h>
#include <genrpc/send.h>
#include <host/message-queue.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace services {

// Initial size of a message's memory and of a connection's send buffer: enough for a screenful of terminals.
inline constexpr std::size_t sendBufferBytes = 16384;

// Sends through the channel of the service; after offer, from any thread. Returns the results of
// frame::OmqIOModule::asyncSend. Throws std::bad_alloc, with nothing sent, when out of memory.
class Sender {
public:
    // Offers the service and returns its channel, for handlers. The sender must not be used after the queue's end.
    // Throws std::runtime_error when the service's endpoint is not available.
    host::QueueChannel& offer(host::MessageQueue& queue, const std::string& name, const frame::MessageSet& messages) {
        channel_ = &queue.serve(name, messages, sendBufferBytes);
        return *channel_;
    }

    std::vector<std::uint64_t> clients() const { return channel_->clients(); } // the connected ones

    template <class Message, class... Args> int toAll(const Args&... args) const {
        return send<Message>(nullptr, args...);
    }
    template <class Message, class... Args> int to(std::uint64_t client, const Args&... args) const {
        const frame::TransportInfo transport{client, {}};
        return send<Message>(&transport, args...);
    }
    template <class Message, class... Args> void toAllExcept(std::uint64_t excluded, const Args&... args) const {
        for (const std::uint64_t client : clients())
            if (client != excluded) to<Message>(client, args...);
    }

private:
    template <class Message, class... Args> int send(const frame::TransportInfo* transport, const Args&... args) const {
        return genrpc::send<Message>(
            *channel_, {.ids = frame::MsgIds::none, .transport = transport, .firstBytes = sendBufferBytes}, args...);
    }

    host::QueueChannel* channel_ = nullptr;
};

} // namespace services
