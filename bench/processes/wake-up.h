// The cost of waking a thread that sleeps on a condition variable.
#pragma once

#include "common/interleaved.h"
#include "timed-event.h"

#include <atomic>
#include <thread>

namespace bench {

class WakeUp {
public:
    ~WakeUp() {
        ending_ = true;
        work_.post();
        sleeper_.join();
    }
    // The nanoseconds from the notification until the sleeping thread runs. It sleeps before: after the previous call,
    // with one CPU for both threads, it ran until it slept again.
    double once() {
        const auto start = Clock::now();
        work_.post();
        return nanoseconds(awake_.wait() - start);
    }

private:
    void sleep() {
        for (;;) {
            work_.wait();
            if (ending_) return;
            awake_.post();
        }
    }

    TimedEvent work_, awake_;
    std::atomic<bool> ending_{false};
    std::thread sleeper_{[this] { sleep(); }};
};

} // namespace bench
