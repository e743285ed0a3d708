// How long a channel that has no connection waits before its next attempt.
#pragma once

#include <algorithm>
#include <chrono>
#include <utility>

namespace host::io {

// 50 ms after the first failure, doubling to 1 s: a service that restarts is back soon, one that is away costs little.
class RetryDelay {
public:
    std::chrono::milliseconds next() { return std::exchange(next_, std::min(2 * next_, longest)); }
    void reset() { next_ = first; } // after a success

private:
    static constexpr std::chrono::milliseconds first{50}, longest{1000};
    std::chrono::milliseconds next_ = first;
};

} // namespace host::io
