// The queue between the writers of the run log and the thread that stores.
#pragma once

#include <lrt/run-log-agent.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <thread-safety/mutex.h>
#include <thread>

namespace lrt {

class RunLogQueue {
public:
    // Stores the records. Returns how many it left out, which it has logged; throws std::exception when it stored none.
    // Called on the queue's thread only.
    using Store = std::function<std::size_t(const std::vector<RunLogRecord>&)>;

    // Holds at most capacity records that are not stored yet. The first record starts the thread.
    RunLogQueue(std::size_t capacity, Store store);
    ~RunLogQueue(); // stores what is queued

    void write(const RunLogRecord& record) noexcept TVSA_EXCLUDES(mutex_);
    // Waits until all records so far are stored or dropped, at most until the timeout, endWaits, or a stop that times
    // out. Returns whether they are.
    bool flush(std::chrono::milliseconds timeout) TVSA_EXCLUDES(mutex_);
    // From any thread: ends current waits of flush and prevents later ones.
    void endWaits() TVSA_EXCLUDES(mutex_);
    std::uint64_t dropped() const { return dropped_.load(std::memory_order_relaxed); }
    // Drops further records and stores the queued ones. Returns whether that completed, and the thread ended, in time.
    // If not, the thread continues detached, and the queue must not be destroyed.
    bool stop(std::chrono::milliseconds timeout) TVSA_EXCLUDES(mutex_);

    RunLogQueue(const RunLogQueue&) = delete;
    RunLogQueue& operator=(const RunLogQueue&) = delete;

private:
    void run();
    void storeBatch(const std::vector<RunLogRecord>& batch);
    void startThread() TVSA_REQUIRES(mutex_);

    const std::size_t capacity_;
    const Store store_;
    std::atomic<std::uint64_t> dropped_{0};
    std::uint64_t reported_ = 0; // of the dropped ones; used by the thread only
    bool failing_ = false;       // whether the last batch was lost; used by the thread only

    thread_safety::Mutex mutex_;
    std::condition_variable changed_;
    std::vector<RunLogRecord> queue_ TVSA_GUARDED_BY(mutex_); // at most capacity_; further ones are counted as dropped
    std::uint64_t accepted_ TVSA_GUARDED_BY(mutex_) = 0;
    std::uint64_t finished_ TVSA_GUARDED_BY(mutex_) = 0; // stored or dropped
    bool stopping_ TVSA_GUARDED_BY(mutex_) = false;
    bool ended_ TVSA_GUARDED_BY(mutex_) = true;
    bool abandoned_ TVSA_GUARDED_BY(mutex_) = false;
    bool waitsEnded_ TVSA_GUARDED_BY(mutex_) = false;
    std::thread thread_ TVSA_GUARDED_BY(mutex_);
};

} // namespace lrt
