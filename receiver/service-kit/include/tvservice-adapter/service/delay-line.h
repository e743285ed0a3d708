// Runs work later, on a thread of its own, in the order in which it was scheduled.
#pragma once

#include <tvservice-adapter/service/bounds.h>

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
    ~DelayLine(); // drops work that is not due yet

    // Runs work once delay has passed and all earlier work is done; at once, on the caller's thread, when there is
    // neither a delay nor pending work. Never blocks. bytes: the approximate memory that the work holds. Work that
    // exceeds bounds::delayedAnswers or bounds::delayedBytes is dropped, counted and logged. From one thread at a time.
    // Exceptions of delayed work are logged.
    void schedule(Work work, std::chrono::milliseconds delay, std::size_t bytes = 0);

    TableCount count() const; // from any thread

    DelayLine(const DelayLine&) = delete;
    DelayLine& operator=(const DelayLine&) = delete;

private:
    using Clock = std::chrono::steady_clock;
    struct Pending {
        Clock::time_point due;
        Work work;
        std::size_t bytes;
    };

    void run();

    mutable thread_safety::Mutex mutex_;
    std::condition_variable changed_;
    // At most bounds::delayedAnswers. The front stays until it is done, so that nothing overtakes it.
    std::deque<Pending> pending_ TVSA_GUARDED_BY(mutex_);
    std::size_t bytes_ TVSA_GUARDED_BY(mutex_) = 0; // of the work in pending_; at most bounds::delayedBytes
    std::uint64_t refused_ TVSA_GUARDED_BY(mutex_) = 0;
    bool ending_ TVSA_GUARDED_BY(mutex_) = false;
    std::thread thread_ TVSA_GUARDED_BY(mutex_); // started by the first delayed work
};

} // namespace services
