// From the thread that is told something to the thread that waits for it.
#pragma once

#include <chrono>
#include <condition_variable>
#include <thread-safety/mutex.h>

namespace bench {

using Clock = std::chrono::steady_clock;

class Notified {
public:
    void post() {
        const auto now = Clock::now();
        {
            const thread_safety::LockGuard lock(mutex_);
            at_ = now;
            posted_ = true;
        }
        changed_.notify_one();
    }
    // Waits for one post and returns when that was, which is before this thread woke.
    Clock::time_point take() {
        thread_safety::UniqueLock lock(mutex_);
        changed_.wait(lock, [&]() TVSA_REQUIRES(mutex_) { return posted_; });
        posted_ = false;
        return at_;
    }

private:
    thread_safety::Mutex mutex_;
    std::condition_variable changed_;
    bool posted_ TVSA_GUARDED_BY(mutex_) = false;
    Clock::time_point at_ TVSA_GUARDED_BY(mutex_);
};

} // namespace bench
