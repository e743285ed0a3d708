// The service's process and its report.
#pragma once

#include <cstdint>

namespace soak {

struct Report {
    std::uint64_t valid;       // messages that reached the handler unchanged
    std::uint64_t wrong;       // messages that arrived changed, twice or out of order
    std::uint64_t received;    // counter of the queue
    std::uint64_t undecodable; // counter of the queue: messages that it dropped
    std::uint64_t heap;        // bytes in use
    std::uint64_t flatBlocks, flatBytes;
};

// Bytes of the heap in use.
std::uint64_t heapInUse();

// Serves until the pipe `requests` is closed. Writes a report to `answers` for each byte from `requests`.
int serve(int requests, int answers);

} // namespace soak
