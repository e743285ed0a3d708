// The limits of a message queue.
#pragma once

#include <chrono>
#include <cstddef>

namespace host {

// Limits, each overridable by a setting: queue.messages, queue.bytes, queue.wait_ms, queue.unfinished_ms.
struct QueueLimits {
    // Queued per connection. A service's messages to all clients leave the last eighth of both to answers.
    std::size_t messages = 1024;
    std::size_t bytes = 64 * 1024 * 1024;
    std::chrono::milliseconds wait{5000}; // how long a message waits for a connection
    // How long a partly received message may make no progress; then the connection to its sender is closed.
    std::chrono::milliseconds unfinished{5000};
    static QueueLimits fromConfiguration(); // throws ConfigurationError
};

} // namespace host
