// An event that one thread posts and another waits for, with the time of the post.
#pragma once

#include <chrono>
#include <condition_variable>
#include <thread-safety/mutex.h>

namespace bench {

using Clock = std::chrono::steady_clock;

class TimedEvent {
public:
    void post() {
        const auto now = Clock::now();
        {
            const thread_safety::LockGuard lock(mutex_);
            time_ = now;
            posted_ = true;
        }
        changed_.notify_one();
    }
    // Waits for a post and returns its time, which is before this thread woke up.
    Clock::time_point wait() {
        thread_safety::UniqueLock lock(mutex_);
        changed_.wait(lock, [&]() TVSA_REQUIRES(mutex_) { return posted_; });
        posted_ = false;
        return time_;
    }

private:
    thread_safety::Mutex mutex_;
    std::condition_variable changed_;
    bool posted_ TVSA_GUARDED_BY(mutex_) = false;
    Clock::time_point time_ TVSA_GUARDED_BY(mutex_);
};

} // namespace bench
