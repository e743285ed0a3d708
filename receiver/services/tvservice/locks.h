// The terminals that are locked against minors.
#pragma once

#include <tvservice-adapter/service/client-table.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <thread-safety/mutex.h>

namespace services {

struct Lock {
    std::int32_t rating = 0;
    std::uint64_t client = 0; // the connection whose request it was
    std::size_t textBytes() const { return 0; }
};

// The receiving thread changes and reads it; the shell counts it on its own thread.
class Locks {
public:
    enum class Outcome { changed, unchanged, refused };

    // Refused when there is no room for another lock (see bounds.h). Without evictions, a full table evicts nothing.
    Outcome lock(const Terminal& terminal, std::int32_t rating, std::uint64_t client, Evictions* evictions = nullptr);
    Outcome unlock(const Terminal& terminal);

    bool contains(const Terminal& terminal) const { return all().contains(terminal); }
    // Without the mutex: on the receiving thread, which alone changes them.
    const std::map<Terminal, ClientTable<Lock>::Held>& all() const TVSA_NO_THREAD_SAFETY_ANALYSIS {
        return locks_.entries();
    }

    TableCount count() const; // from any thread

private:
    mutable thread_safety::Mutex mutex_; // guards changes and counts
    ClientTable<Lock> locks_ TVSA_GUARDED_BY(mutex_){"locks"};
};

} // namespace services
