// Statistics of the process's message-queue connections.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace frame {

// Counters since the process started. On the service's side they cover all clients.
struct IOStatistics {
    std::string service;
    bool connected = false;        // on the service's side: whether any client is connected
    std::uint64_t sent = 0;        // messages completely written to the socket
    std::uint64_t received = 0;    // messages passed to a handler
    std::uint64_t dropped = 0;     // messages accepted but not sent: no connection for 5 s, or the queue stopped
    std::uint64_t refused = 0;     // messages that asyncSend did not accept, and rejected peers
    std::uint64_t undecodable = 0; // incoming messages that failed validation or have no handler
    std::uint64_t reconnects = 0;  // connections made after the first one
    std::uint64_t queued = 0;      // messages queued now
};

// Calls use(name, value) for each counter in order, for display.
template <class Use> void eachStatistic(const IOStatistics& statistics, const Use& use) {
    use("service", statistics.service);
    use("connected", statistics.connected);
    use("sent", statistics.sent);
    use("received", statistics.received);
    use("dropped", statistics.dropped);
    use("refused", statistics.refused);
    use("undecodable", statistics.undecodable);
    use("reconnects", statistics.reconnects);
    use("queued", statistics.queued);
}

// One entry per service connection of this process, in order of creation. From any thread.
std::vector<IOStatistics> ioStatistics();

} // namespace frame
