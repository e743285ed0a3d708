// The delay before a channel's next attempt to connect.
#pragma once

#include <algorithm>
#include <chrono>
#include <utility>

namespace host::io {

// 50 ms after the first failure, doubling to 1 s: fast for a service that restarts, cheap for one that is not running.
class RetryDelay {
public:
    std::chrono::milliseconds next() { return std::exchange(next_, std::min(2 * next_, longest)); }
    void reset() { next_ = first; } // after a success

private:
    static constexpr std::chrono::milliseconds first{50}, longest{1000};
    std::chrono::milliseconds next_ = first;
};

} // namespace host::io
