// The terminals that are locked against minors.
#pragma once

#include "common/bounds.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>

namespace services {

struct Lock {
    std::int32_t rating = 0;
    std::uint64_t client = 0; // the connection whose request it was
    std::size_t textBytes() const { return 0; }
};

// Changed and read on the receiving thread, counted by the shell on its own.
class Locks {
public:
    enum class Outcome { changed, unchanged, refused };

    // Refused when there is no room for another one (see bounds.h).
    Outcome lock(const Terminal& terminal, std::int32_t rating, std::uint64_t client);
    Outcome unlock(const Terminal& terminal);

    bool contains(const Terminal& terminal) const { return locks_.contains(terminal); }
    const std::map<Terminal, Lock>& all() const { return locks_; }

    TableCount count() const; // from any thread

private:
    mutable std::mutex mutex_; // of changes and counts
    std::map<Terminal, Lock> locks_;
    std::uint64_t refused_ = 0;
};

} // namespace services
