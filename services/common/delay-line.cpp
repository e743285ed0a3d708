#include "common/delay-line.h"

#include "common/log.h"

#include <exception>
#include <utility>

namespace services {

DelayLine::~DelayLine() {
    {
        const std::lock_guard lock(mutex_);
        ending_ = true;
    }
    changed_.notify_one();
    if (thread_.joinable()) thread_.join();
}

void DelayLine::give(Work work, std::chrono::milliseconds delay) {
    {
        const std::lock_guard lock(mutex_);
        if (delay.count() > 0 || !waiting_.empty()) {
            if (!thread_.joinable()) thread_ = std::thread([this] { run(); });
            waiting_.push_back({Clock::now() + delay, std::move(work)});
            changed_.notify_one();
            return;
        }
    }
    work();
}

void DelayLine::run() {
    std::unique_lock lock(mutex_);
    while (true) {
        changed_.wait(lock, [this] { return ending_ || !waiting_.empty(); });
        if (ending_) return;
        const Clock::time_point due = waiting_.front().due;
        if (changed_.wait_until(lock, due, [this] { return ending_; })) return;
        const Work& work = waiting_.front().work;
        lock.unlock();
        try {
            work();
        } catch (const std::exception& error) {
            SERVICE_LOG(vdlDebugFailure, "a delayed answer is lost: %s\n", error.what());
        }
        lock.lock();
        waiting_.pop_front();
    }
}

} // namespace services
