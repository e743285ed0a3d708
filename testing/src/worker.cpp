#include "worker.h"

#include <thread>

namespace tvtest {

std::cv_status Worker::wait(std::unique_lock<std::mutex>& managerLock) {
    managerLock.unlock();
    std::cv_status result = std::cv_status::timeout;
    {
        thread_safety::UniqueLock lock(mutex_);
        waits_ = true;
        waitEnds_ = time_.now() + std::chrono::seconds(1);
        changed_.notify_all();
        changed_.wait(lock, [this]() TVSA_REQUIRES(mutex_) { return !waits_ || released_; });
        if (!released_) result = result_;
    }
    if (result == std::cv_status::timeout) std::this_thread::yield(); // once released, it comes back at once
    managerLock.lock();
    return result;
}

void Worker::awaitWaiting() {
    thread_safety::UniqueLock lock(mutex_);
    changed_.wait(lock, [this]() TVSA_REQUIRES(mutex_) { return waits_; });
}

void Worker::resume(std::cv_status result) {
    {
        const thread_safety::LockGuard lock(mutex_);
        result_ = result;
        waits_ = false;
        changed_.notify_all();
    }
    awaitWaiting();
}

Time Worker::waitEnds() {
    const thread_safety::LockGuard lock(mutex_);
    return waitEnds_;
}

void Worker::release() {
    const thread_safety::LockGuard lock(mutex_);
    released_ = true;
    changed_.notify_all();
}

} // namespace tvtest
