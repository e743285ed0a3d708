// From the thread that is told something to the thread that waits for it.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace bench {

using Clock = std::chrono::steady_clock;

class Notified {
public:
    void post() {
        const auto now = Clock::now();
        {
            const std::lock_guard lock(mutex_);
            at_ = now;
            posted_ = true;
        }
        changed_.notify_one();
    }
    // Waits for one post and returns when that was, which is before this thread woke.
    Clock::time_point take() {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return posted_; });
        posted_ = false;
        return at_;
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool posted_ = false;
    Clock::time_point at_;
};

} // namespace bench
