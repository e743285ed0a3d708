// The resource manager's worker, which runs only when the test lets it.
//
// The manager has a thread of its own. Whenever it waits for a notification, it is held in wait(), until resume() tells
// it that there was one, or that a second has passed without one.
#pragma once

#include "simulated-time.h"

#include <condition_variable>
#include <mutex>
#include <thread-safety/mutex.h>

namespace tvtest {

class Worker {
public:
    explicit Worker(const SimulatedTime& time) : time_(time) {}

    // The manager's resWait, on the worker's thread. managerLock is released while it waits.
    std::cv_status wait(std::unique_lock<std::mutex>& managerLock) TVSA_EXCLUDES(mutex_);

    // All others are for the test's thread. Waits until the worker waits.
    void awaitWaiting() TVSA_EXCLUDES(mutex_);
    // Lets the worker continue until it waits again.
    void resume(std::cv_status result) TVSA_EXCLUDES(mutex_);
    // When the current wait's second has passed.
    Time waitEnds() TVSA_EXCLUDES(mutex_);
    // Never holds the worker again, so that the manager can be destroyed.
    void release() TVSA_EXCLUDES(mutex_);

private:
    const SimulatedTime& time_;
    thread_safety::Mutex mutex_;
    std::condition_variable changed_;
    bool waits_ TVSA_GUARDED_BY(mutex_) = false, released_ TVSA_GUARDED_BY(mutex_) = false;
    std::cv_status result_ TVSA_GUARDED_BY(mutex_) = std::cv_status::no_timeout;
    Time waitEnds_ TVSA_GUARDED_BY(mutex_){};
};

} // namespace tvtest
