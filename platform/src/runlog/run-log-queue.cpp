#include "run-log-queue.h"

#include "log/log.h"

#include <exception>
#include <pthread.h>
#include <signal.h>
#include <utility>

namespace lrt {

RunLogQueue::RunLogQueue(std::size_t capacity, Store store) : capacity_(capacity), store_(std::move(store)) {}

RunLogQueue::~RunLogQueue() {
    {
        thread_safety::LockGuard lock(mutex_);
        stopping_ = true;
        changed_.notify_all();
    }
    if (thread_.joinable()) thread_.join();
}

void RunLogQueue::write(const RunLogRecord& record) noexcept {
    try {
        RunLogRecord copy = record;
        thread_safety::LockGuard lock(mutex_);
        if (!stopping_ && accepted_ - finished_ < capacity_) {
            if (!thread_.joinable()) startThread();
            queue_.push_back(std::move(copy));
            ++accepted_;
            changed_.notify_all();
            return;
        }
    } catch (...) { // out of memory or threads; the next record tries again
    }
    dropped_.fetch_add(1, std::memory_order_relaxed);
}

// The thread blocks all signals: other threads wait for them.
void RunLogQueue::startThread() {
    sigset_t all, former;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &former);
    try {
        thread_ = std::thread([this] { run(); });
        ended_ = false;
    } catch (...) {
        pthread_sigmask(SIG_SETMASK, &former, nullptr);
        throw;
    }
    pthread_sigmask(SIG_SETMASK, &former, nullptr);
}

void RunLogQueue::run() {
    pthread_setname_np(pthread_self(), "run-log");
    thread_safety::UniqueLock lock(mutex_);
    for (;;) {
        changed_.wait(lock, [&]() TVSA_REQUIRES(mutex_) { return stopping_ || !queue_.empty(); });
        if (queue_.empty()) break;
        std::vector<RunLogRecord> batch;
        batch.swap(queue_);
        lock.unlock();
        storeBatch(batch);
        lock.lock();
        finished_ += batch.size();
        changed_.notify_all();
    }
    if (const std::uint64_t lost = dropped() - reported_; lost != 0)
        HOST_LOG(runlog, vdlDebugWarning, "ending with %llu records lost", static_cast<unsigned long long>(lost));
    ended_ = true;
    changed_.notify_all();
}

void RunLogQueue::storeBatch(const std::vector<RunLogRecord>& batch) {
    try {
        const std::size_t leftOut = store_(batch);
        dropped_.fetch_add(leftOut, std::memory_order_relaxed);
        reported_ += leftOut;
    } catch (const std::exception& error) {
        dropped_.fetch_add(batch.size(), std::memory_order_relaxed);
        if (!failing_) HOST_LOG(runlog, vdlDebugWarning, "cannot store records, dropping them: %s", error.what());
        failing_ = true;
        return;
    }
    failing_ = false;
    const std::uint64_t lost = dropped() - reported_;
    if (lost == 0) return;
    HOST_LOG(runlog, vdlDebugWarning, "storing works again; %llu records were lost",
             static_cast<unsigned long long>(lost));
    reported_ += lost;
}

bool RunLogQueue::flush(std::chrono::milliseconds timeout) {
    thread_safety::UniqueLock lock(mutex_);
    const std::uint64_t target = accepted_;
    changed_.wait_for(lock, timeout,
                      [&]() TVSA_REQUIRES(mutex_) { return finished_ >= target || abandoned_ || waitsEnded_; });
    return finished_ >= target;
}

void RunLogQueue::endWaits() {
    thread_safety::LockGuard lock(mutex_);
    waitsEnded_ = true;
    changed_.notify_all();
}

bool RunLogQueue::stop(std::chrono::milliseconds timeout) {
    thread_safety::UniqueLock lock(mutex_);
    stopping_ = true;
    changed_.notify_all();
    const bool ended = changed_.wait_for(lock, timeout, [&]() TVSA_REQUIRES(mutex_) { return ended_; });
    abandoned_ = !ended;
    changed_.notify_all();
    std::thread thread = std::move(thread_);
    lock.unlock();
    if (!thread.joinable()) return ended;
    if (ended)
        thread.join();
    else
        thread.detach();
    return ended;
}

} // namespace lrt
