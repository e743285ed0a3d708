// What it costs to wake a thread that sleeps on a condition variable.
#pragma once

#include "common/interleaved.h"
#include "notified.h"

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
    // From the notification until the sleeping thread runs, in nanoseconds. The thread is asleep before: it has told us
    // last time, and with one CPU for both it went on until it slept again.
    double once() {
        const auto start = Clock::now();
        work_.post();
        return nanoseconds(awake_.take() - start);
    }

private:
    void sleep() {
        for (;;) {
            work_.take();
            if (ending_) return;
            awake_.post();
        }
    }

    Notified work_, awake_;
    std::atomic<bool> ending_{false};
    std::thread sleeper_{[this] { sleep(); }};
};

} // namespace bench
