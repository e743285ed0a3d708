// The clients of the sending process: one sends valid messages through a queue, the other all kinds over sockets.
#pragma once

#include "traffic.h"

#include <atomic>
#include <cstdint>
#include <stop_token>
#include <string>

namespace host {
class MessageQueue;
class QueueChannel;
} // namespace host

namespace soak {

// Sends numbered messages through a queue's channel, and waits while the queue is full.
class QueueClient {
public:
    explicit QueueClient(host::MessageQueue& queue);
    ~QueueClient();
    void send(std::uint64_t count, const std::stop_token& stop);
    std::uint64_t sent() const { return sent_; }

    QueueClient(const QueueClient&) = delete;
    QueueClient& operator=(const QueueClient&) = delete;

private:
    host::QueueChannel& channel_;
    char* const text_;
    std::atomic<std::uint32_t> sent_{0};
};

// Again and again connects, sends a valid message, a malformed one and a truncated one, and disconnects.
class RawClient {
public:
    explicit RawClient(std::string path);
    void send(std::uint64_t connections, const std::stop_token& stop);
    std::uint64_t connections() const { return connections_; }

private:
    int connection() const;

    const std::string path_, hello_;
    std::atomic<std::uint32_t> connections_{0};
};

} // namespace soak
