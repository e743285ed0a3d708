// The framework's thread: its work queue, beginning and end.
#include "base/guarded-call.h"
#include "frame/process-state.h"
#include "log/log.h"
#include "runlog/run-log-waits.h"

#include <cerrno>
#include <future>

namespace frame {

void Process::State::post(std::function<void()> work) {
    {
        thread_safety::LockGuard lock(workMutex_);
        if (phase_ == Phase::ending || phase_ == Phase::ended) return;
        work_.push_back(std::move(work));
    }
    workChanged_.notify_one();
}

int Process::State::call(std::function<int()> work) {
    thread_safety::UniqueLock lock(workMutex_);
    const bool threadExists = phase_ == Phase::serving || phase_ == Phase::ending;
    if (!threadExists || thread_ == std::this_thread::get_id()) {
        lock.unlock();
        return work();
    }
    // The thread is stopping members. Waiting for it could deadlock with a member that waits for the caller.
    if (phase_ == Phase::ending) return -ESHUTDOWN;
    auto promise = std::make_shared<std::promise<int>>();
    std::future<int> result = promise->get_future();
    // Only the work owns the promise, so discarding the work breaks it.
    work_.push_back([promise = std::move(promise), work = std::move(work)] { promise->set_value(work()); });
    lock.unlock();
    workChanged_.notify_one();
    try {
        return result.get();
    } catch (const std::future_error&) { // the work was discarded
        return -ESHUTDOWN;
    }
}

void Process::State::beginServing() {
    thread_safety::LockGuard lock(workMutex_);
    thread_ = std::this_thread::get_id();
    phase_ = Phase::serving;
}

void Process::State::serve() {
    thread_safety::UniqueLock lock(workMutex_);
    for (;;) {
        workChanged_.wait(lock, [&]() TVSA_REQUIRES(workMutex_) { return endRequested_ || !work_.empty(); });
        if (endRequested_) return;
        std::function<void()> work = std::move(work_.front());
        work_.pop_front();
        lock.unlock();
        host::guardedCall(work, [](const host::Thrown& thrown) {
            HOST_LOG(frame, vdlDebugFailure, "work on the framework's thread threw: %s\n", thrown.what);
        });
        work = nullptr; // its destructors may post work again
        lock.lock();
    }
}

void Process::State::requestEnd() {
    {
        thread_safety::LockGuard lock(workMutex_);
        endRequested_ = true;
    }
    workChanged_.notify_one();
    lrt::endRunLogWaits(); // of threads that the end waits for
}

void Process::State::end() {
    std::deque<std::function<void()>> discarded;
    {
        thread_safety::LockGuard lock(workMutex_);
        if (phase_ == Phase::ended) return;
        thread_ = std::this_thread::get_id();
        phase_ = Phase::ending;
        discarded.swap(work_);
    }
    discarded.clear(); // wakes the threads that wait in call
    stopMembers();
    stopQueue();
    thread_safety::LockGuard lock(workMutex_);
    phase_ = Phase::ended;
}

} // namespace frame
