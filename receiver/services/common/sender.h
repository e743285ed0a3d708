// How a service's messages get to its clients.
#pragma once

#include <frame/omq-io-module.h>
#include <genrpc/send.h>
#include <host/message-queue.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace services {

// First size of a message's memory and of a connection's send buffer: room for a screenful of terminals.
inline constexpr std::size_t sendBufferBytes = 16384;

// Sends through the channel of the service, once that is offered; from any thread from then on. Results as those of
// frame::OmqIOModule::asyncSend. Throws std::bad_alloc, with nothing sent, when memory runs out.
class Sender {
public:
    // Offers the service and returns its channel, for handlers. The sender must not be used after the queue's end.
    // Throws std::runtime_error when the service's endpoint cannot be had.
    host::QueueChannel& offer(host::MessageQueue& queue, const std::string& name, const frame::MessageSet& messages) {
        channel_ = &queue.serve(name, messages, sendBufferBytes);
        return *channel_;
    }

    std::vector<std::uint64_t> clients() const { return channel_->clients(); } // that are connected

    template <class Message, class... Args> int toAll(const Args&... args) const {
        return send<Message>(nullptr, args...);
    }
    template <class Message, class... Args> int to(std::uint64_t client, const Args&... args) const {
        const frame::TransportInfo transport{client, {}};
        return send<Message>(&transport, args...);
    }
    template <class Message, class... Args> void toAllBut(std::uint64_t one, const Args&... args) const {
        for (const std::uint64_t client : clients())
            if (client != one) to<Message>(client, args...);
    }

private:
    template <class Message, class... Args> int send(const frame::TransportInfo* transport, const Args&... args) const {
        return genrpc::send<Message>(
            *channel_, {.ids = frame::MsgIds::none, .transport = transport, .firstBytes = sendBufferBytes}, args...);
    }

    host::QueueChannel* channel_ = nullptr;
};

} // namespace services
