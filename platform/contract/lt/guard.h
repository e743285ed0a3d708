// The platform's mutex and its guard.
#pragma once

#include <mutex>
#include <thread-safety/mutex.h>

// A plain, non-recursive mutex. Locking can throw std::system_error.
class TVSA_CAPABILITY("mutex") ltMutex {
public:
    void lock() TVSA_ACQUIRE() { mutex_.lock(); }
    void unlock() TVSA_RELEASE() { mutex_.unlock(); }

private:
    std::mutex mutex_;
};

// Holds a mutex from construction to the end of the scope.
class [[nodiscard]] TVSA_SCOPED_CAPABILITY ltGuard {
public:
    explicit ltGuard(ltMutex& mutex) TVSA_ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
    ~ltGuard() TVSA_RELEASE() { mutex_.unlock(); }
    ltGuard(const ltGuard&) = delete;
    ltGuard& operator=(const ltGuard&) = delete;

private:
    ltMutex& mutex_;
};
