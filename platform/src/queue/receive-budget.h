// Limits the flat memory that the receive buffers of a process take beyond the first block of each.
//
// A partly received message occupies memory for as long as its sender likes. Two limits keep such messages from
// exhausting a process's memory: one per peer, so that a peer cannot take the others' memory, and one for all peers
// together, so that a quarter of the heap remains for answers and small messages. With a heap of 80 MiB or more, the
// first blocks of all possible connections fit into that quarter.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <thread-safety/mutex.h>

namespace host::io {

// From any thread.
class ReceiveBudget {
public:
    // The budget that all receive buffers share. In total: three quarters of the heap, which in the smallest heap is
    // what a largest message needs. Per peer: what one largest message needs. Never destroyed. Throws std::bad_alloc
    // when there is no heap.
    static ReceiveBudget& ofProcess();

    ReceiveBudget(std::size_t total, std::size_t share) : total_(total), share_(share) {}

    // Throws std::runtime_error with the limit that is reached, or std::bad_alloc; takes nothing then.
    void take(const std::string& peer, std::size_t bytes);
    void give(const std::string& peer, std::size_t bytes) noexcept;

private:
    const std::size_t total_, share_;
    thread_safety::Mutex mutex_;
    std::size_t taken_ TVSA_GUARDED_BY(mutex_) = 0;
    // Only peers that have taken something: at most one for each connection.
    std::map<std::string, std::size_t> takenBy_ TVSA_GUARDED_BY(mutex_);
};

} // namespace host::io
