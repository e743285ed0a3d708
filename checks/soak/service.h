// The process that serves, and what it says of itself.
#pragma once

#include <cstdint>

namespace soak {

struct Report {
    std::uint64_t honest;      // messages that reached the handler as they were sent
    std::uint64_t wrong;       // that came changed, twice or out of their order
    std::uint64_t received;    // by the queue's counters, and
    std::uint64_t undecodable; // those that it dropped
    std::uint64_t heap;        // bytes in use
    std::uint64_t flatBlocks, flatBytes;
};

// Bytes of the heap in use.
std::uint64_t heapInUse();

// Serves until questions ends; writes a report to answers for each byte that comes from questions.
int serve(int questions, int answers);

} // namespace soak
