#include <tvservice-adapter/service/delay-line.h>
#include <tvservice-adapter/service/log.h>

#include <exception>
#include <utility>

namespace services {

DelayLine::~DelayLine() {
    {
        const thread_safety::LockGuard lock(mutex_);
        ending_ = true;
    }
    changed_.notify_one();
    if (thread_.joinable()) thread_.join();
}

void DelayLine::schedule(Work work, std::chrono::milliseconds delay, std::size_t bytes) {
    {
        const thread_safety::LockGuard lock(mutex_);
        if (delay.count() > 0 || !pending_.empty()) {
            if (pending_.size() == bounds::delayedAnswers || bytes > bounds::delayedBytes - bytes_) {
                ++refused_;
                SERVICE_LOG(vdlDebugWarning, "dropped an answer: %zu with %zu bytes are delayed already\n",
                            pending_.size(), bytes_);
                return;
            }
            if (!thread_.joinable()) thread_ = std::thread([this] { run(); });
            pending_.push_back({Clock::now() + delay, std::move(work), bytes});
            bytes_ += bytes;
            changed_.notify_one();
            return;
        }
    }
    work();
}

void DelayLine::run() {
    thread_safety::UniqueLock lock(mutex_);
    while (true) {
        changed_.wait(lock, [this]() TVSA_REQUIRES(mutex_) { return ending_ || !pending_.empty(); });
        if (ending_) return;
        const Clock::time_point due = pending_.front().due;
        if (changed_.wait_until(lock, due, [this]() TVSA_REQUIRES(mutex_) { return ending_; })) return;
        const Work& work = pending_.front().work;
        lock.unlock();
        try {
            work();
        } catch (const std::exception& error) {
            SERVICE_LOG(vdlDebugFailure, "a delayed answer is lost: %s\n", error.what());
        }
        lock.lock();
        bytes_ -= pending_.front().bytes;
        pending_.pop_front();
    }
}

TableCount DelayLine::count() const {
    const thread_safety::LockGuard lock(mutex_);
    return {"delayed answers", pending_.size(), bounds::delayedAnswers, refused_};
}

} // namespace services
