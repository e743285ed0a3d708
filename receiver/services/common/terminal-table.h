// What each terminal of a service shows.
#pragma once

#include "common/client-table.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <thread-safety/mutex.h>
#include <vector>

namespace services {

struct Shown {
    std::string uri;
    std::string uuid;
    std::uint64_t client = 0; // the connection whose request it was
    std::chrono::system_clock::time_point since;
    std::size_t textBytes() const { return uri.size() + uuid.size(); }
    bool operator==(const Shown&) const = default;
};

// Requests change it on the receiving thread while the shell reads it on its own.
class TerminalTable {
public:
    struct Entry {
        Terminal terminal;
        Shown shown;
    };

    // Whether the terminal shows that now; it goes on as before when there is no room for it (see bounds.h). Without
    // evictions a full table makes no room.
    bool show(const Terminal& terminal, Shown shown, Evictions* evictions = nullptr);
    void stop(const Terminal& terminal); // harmless when the terminal shows nothing
    // Returns whether it swapped: there has to be something, and room for a terminal more of the client that asks when
    // only one of them shows something of another one's.
    bool swap(const Terminal& a, const Terminal& b, std::uint64_t client);
    std::vector<Entry> entries() const; // ordered by terminal
    TableCount count() const;

private:
    mutable thread_safety::Mutex mutex_;
    ClientTable<Shown> shown_ TVSA_GUARDED_BY(mutex_){"terminals"};
};

} // namespace services
