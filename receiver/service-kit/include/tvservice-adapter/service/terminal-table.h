// What each terminal of a service shows, and why requests for terminals failed.
#pragma once

#include <tvservice-adapter/service/client-table.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
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

// All calls are safe from any thread: requests change it on the receiving thread, the shell reads it on its own.
class TerminalTable {
public:
    struct Entry {
        Terminal terminal;
        Shown shown;
    };

    // Returns whether the terminal shows it now; without room (see bounds.h) the terminal keeps what it shows. Without
    // evictions, a full table evicts nothing.
    bool show(const Terminal& terminal, Shown shown, Evictions* evictions = nullptr);
    void stop(const Terminal& terminal); // has no effect when the terminal shows nothing
    // The number of what a terminal shows, different for each show; 0: it shows nothing. It moves with a swap.
    std::uint64_t numberOf(const Terminal& terminal) const;
    std::optional<Terminal> terminalOf(std::uint64_t number) const;
    // Stops what has the number. Returns its terminal, or nothing when no terminal shows it any more.
    std::optional<Terminal> stop(std::uint64_t number);
    // Returns whether it swapped. At least one of them must show something. When only one does, at another client's
    // request, the requesting client must have room for one more terminal.
    bool swap(const Terminal& a, const Terminal& b, std::uint64_t client);
    std::vector<Entry> entries() const; // ordered by terminal
    TableCount count() const;

    // Why a terminal does not show what a request asked for, for people.
    struct Failure {
        std::string request; // its id
        Terminal terminal;
        std::int32_t result = 0;
        std::string reason;
    };
    // The newest mostFailures are kept, unless the request's id is longer than a reason may be.
    void fail(Failure failure);
    std::vector<Failure> failuresOf(const std::string& request) const; // the oldest one first
    static constexpr std::size_t mostFailures = 64, mostReasonBytes = 1024;

private:
    std::optional<Terminal> find(std::uint64_t number) const TVSA_REQUIRES(mutex_);

    mutable thread_safety::Mutex mutex_;
    ClientTable<Shown> claimedKey_ TVSA_GUARDED_BY(mutex_){"terminals"};
    std::deque<Failure> failures_ TVSA_GUARDED_BY(mutex_);
};

} // namespace services
