// What the receive buffers of a process may take of the flat heap beyond the first block that each of them has.
//
// A message of which only a part has arrived holds memory for as long as its sender likes. Two bounds keep such
// messages from starving a process: one per peer, so that a peer cannot take the others' memory, and one for all peers
// together, so that a quarter of the heap is kept for answers and small messages. The first blocks of all connections
// that there may be fit into that quarter from a heap of 80 MiB on.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <thread-safety/mutex.h>

namespace host::io {

// From any thread.
class ReceiveBudget {
public:
    // The one that all receive buffers share: of the heap's size three quarters, which is what a largest message needs
    // in the smallest heap, and per peer what one largest message needs. Never destroyed. Throws std::bad_alloc when
    // there is no heap.
    static ReceiveBudget& ofProcess();

    ReceiveBudget(std::size_t total, std::size_t share) : total_(total), share_(share) {}

    // Throws std::runtime_error, saying which bound is reached, or std::bad_alloc; nothing is taken then.
    void take(const std::string& peer, std::size_t bytes);
    void give(const std::string& peer, std::size_t bytes) noexcept;

private:
    const std::size_t total_, share_;
    thread_safety::Mutex mutex_;
    std::size_t taken_ TVSA_GUARDED_BY(mutex_) = 0;
    // Only peers that have taken something: no more than connections.
    std::map<std::string, std::size_t> takenBy_ TVSA_GUARDED_BY(mutex_);
};

} // namespace host::io
