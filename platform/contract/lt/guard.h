// The platform's mutex and its guard.
#pragma once

#include <mutex>

// A plain, non-recursive mutex. Locking can throw std::system_error.
class ltMutex {
public:
    void lock() { mutex_.lock(); }
    void unlock() { mutex_.unlock(); }

private:
    std::mutex mutex_;
};

// Holds a mutex from construction to the end of the scope.
class [[nodiscard]] ltGuard {
public:
    explicit ltGuard(ltMutex& mutex) : mutex_(mutex) { mutex_.lock(); }
    ~ltGuard() { mutex_.unlock(); }
    ltGuard(const ltGuard&) = delete;
    ltGuard& operator=(const ltGuard&) = delete;

private:
    ltMutex& mutex_;
};
