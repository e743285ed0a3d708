// The process that sends: honest messages through a queue, and everything else over streams of its own.
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

// Sends numbered messages through a queue's channel, waiting whenever the queue is full.
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

// Connects, says an honest message, a malformed one and a part of a third, and is gone; again and again.
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
