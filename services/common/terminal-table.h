// What each terminal of a service shows.
#pragma once

#include <chrono>
#include <compare>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace services {

struct Terminal {
    std::int32_t type = 0;
    std::int32_t id = 0;
    auto operator<=>(const Terminal&) const = default;
};

struct Shown {
    std::string uri;
    std::string uuid;
    std::uint64_t client = 0; // the connection whose request it was
    std::chrono::system_clock::time_point since;
    bool operator==(const Shown&) const = default;
};

// Requests change it on the receiving thread while the shell reads it on its own.
class TerminalTable {
public:
    struct Entry {
        Terminal terminal;
        Shown shown;
    };

    void show(const Terminal& terminal, Shown shown);
    void stop(const Terminal& terminal); // harmless when the terminal shows nothing
    // Returns whether there was anything to swap.
    bool swap(const Terminal& a, const Terminal& b);
    std::vector<Entry> entries() const; // ordered by terminal

private:
    mutable std::mutex mutex_;
    std::map<Terminal, Shown> shown_;
};

} // namespace services
