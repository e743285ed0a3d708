// Work that is done later, on a thread of its own, in the order in which it was given.
#pragma once

#include "common/bounds.h"

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <thread-safety/mutex.h>
#include <thread>

namespace services {

class DelayLine {
public:
    using Work = std::function<void()>;

    DelayLine() = default;
    ~DelayLine(); // gives up what is not due yet

    // Does work once delay has passed and everything given before is done: at once, on the caller's thread, without a
    // delay and without work waiting. Never waits itself. bytes: what the work holds, about. Work that would make more
    // wait than bounds::delayedAnswers or bounds::delayedBytes is lost, counted and logged. From one thread at a time.
    // Exceptions of work done later are logged.
    void give(Work work, std::chrono::milliseconds delay, std::size_t bytes = 0);

    TableCount count() const; // from any thread

    DelayLine(const DelayLine&) = delete;
    DelayLine& operator=(const DelayLine&) = delete;

private:
    using Clock = std::chrono::steady_clock;
    struct Waiting {
        Clock::time_point due;
        Work work;
        std::size_t bytes;
    };

    void run();

    mutable thread_safety::Mutex mutex_;
    std::condition_variable changed_;
    // At most bounds::delayedAnswers. The front stays until it is done, so that nothing overtakes it.
    std::deque<Waiting> waiting_ TVSA_GUARDED_BY(mutex_);
    std::size_t bytes_ TVSA_GUARDED_BY(mutex_) = 0; // of the work in waiting_; at most bounds::delayedBytes
    std::uint64_t refused_ TVSA_GUARDED_BY(mutex_) = 0;
    bool ending_ TVSA_GUARDED_BY(mutex_) = false;
    std::thread thread_ TVSA_GUARDED_BY(mutex_); // started by the first work that has to wait
};

} // namespace services
