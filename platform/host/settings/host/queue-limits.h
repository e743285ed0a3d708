// What a message queue is limited to.
#pragma once

#include <chrono>
#include <cstddef>

namespace host {

// Limits, each overridable by a setting: queue.messages, queue.bytes, queue.wait_ms,
// queue.unfinished_ms.
struct QueueLimits {
    // Waiting per connection. A service's messages to all clients leave the last eighth of both to answers.
    std::size_t messages = 1024;
    std::size_t bytes = 64 * 1024 * 1024;
    std::chrono::milliseconds wait{5000}; // for a connection, per message
    // Without progress of a message of which a part has arrived; the connection to its sender then ends.
    std::chrono::milliseconds unfinished{5000};
    static QueueLimits fromConfiguration(); // throws ConfigurationError
};

} // namespace host
