// Mutexes and guards, annotated for clang's thread safety analysis (-Wthread-safety): it checks at compile time that
// guarded data is used only with its mutex held. Other compilers see no annotations. Each class behaves and costs the
// same as its namesake in <mutex>.
#pragma once

#include <mutex>

#ifdef __clang__
#define TVSA_THREAD_SAFETY(attribute) __attribute__((attribute))
#else
#define TVSA_THREAD_SAFETY(attribute)
#endif

// For data: it may be used only with the mutex held. For a pointer: the same holds for its target.
#define TVSA_GUARDED_BY(mutex) TVSA_THREAD_SAFETY(guarded_by(mutex))
#define TVSA_PT_GUARDED_BY(mutex) TVSA_THREAD_SAFETY(pt_guarded_by(mutex))

// For functions: the caller must hold the mutex; the caller must not hold it.
#define TVSA_REQUIRES(...) TVSA_THREAD_SAFETY(requires_capability(__VA_ARGS__))
#define TVSA_EXCLUDES(...) TVSA_THREAD_SAFETY(locks_excluded(__VA_ARGS__))

// For functions: locks the mutex; locks it if the result is the given one; unlocks it. Without an argument, the mutex
// is the object itself or the one that a guard holds.
#define TVSA_ACQUIRE(...) TVSA_THREAD_SAFETY(acquire_capability(__VA_ARGS__))
#define TVSA_TRY_ACQUIRE(...) TVSA_THREAD_SAFETY(try_acquire_capability(__VA_ARGS__))
#define TVSA_RELEASE(...) TVSA_THREAD_SAFETY(release_capability(__VA_ARGS__))

// For functions: makes clang assume that the mutex is held, where it cannot see that. Does nothing at run time.
#define TVSA_ASSERT_CAPABILITY(mutex) TVSA_THREAD_SAFETY(assert_capability(mutex))

// For functions: returns a reference to the mutex.
#define TVSA_RETURN_CAPABILITY(mutex) TVSA_THREAD_SAFETY(lock_returned(mutex))

// For classes: a mutex; a guard that holds one until the end of its scope.
#define TVSA_CAPABILITY(name) TVSA_THREAD_SAFETY(capability(name))
#define TVSA_SCOPED_CAPABILITY TVSA_THREAD_SAFETY(scoped_lockable)

// For functions that clang cannot analyse; a comment says why.
#define TVSA_NO_THREAD_SAFETY_ANALYSIS TVSA_THREAD_SAFETY(no_thread_safety_analysis)

namespace thread_safety {

// The guards of <mutex> lock it, too, but clang does not see that they do.
class TVSA_CAPABILITY("mutex") Mutex : public std::mutex {
public:
    void lock() TVSA_ACQUIRE() { std::mutex::lock(); }
    void unlock() TVSA_RELEASE() { std::mutex::unlock(); }
    bool try_lock() TVSA_TRY_ACQUIRE(true) { return std::mutex::try_lock(); }
};

// clang reports a second lock in the same function as an error.
class TVSA_CAPABILITY("mutex") RecursiveMutex : public std::recursive_mutex {
public:
    void lock() TVSA_ACQUIRE() { std::recursive_mutex::lock(); }
    void unlock() TVSA_RELEASE() { std::recursive_mutex::unlock(); }
    bool try_lock() TVSA_TRY_ACQUIRE(true) { return std::recursive_mutex::try_lock(); }
};

// Holds a mutex until the end of the scope.
template <class Lockable = Mutex> class [[nodiscard]] TVSA_SCOPED_CAPABILITY LockGuard {
public:
    explicit LockGuard(Lockable& mutex) TVSA_ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
    ~LockGuard() TVSA_RELEASE() { mutex_.unlock(); }
    LockGuard(const LockGuard&) = delete;
    LockGuard& operator=(const LockGuard&) = delete;

private:
    Lockable& mutex_;
};

// Holds a mutex until the end of the scope, except between unlock and lock and while a std::condition_variable waits
// with it. clang does not analyse the predicate of such a wait, so a lambda there needs TVSA_REQUIRES(mutex).
class [[nodiscard]] TVSA_SCOPED_CAPABILITY UniqueLock : public std::unique_lock<std::mutex> {
public:
    explicit UniqueLock(Mutex& mutex) TVSA_ACQUIRE(mutex) : std::unique_lock<std::mutex>(mutex) {}
    ~UniqueLock() TVSA_RELEASE() = default;
    UniqueLock(const UniqueLock&) = delete;
    UniqueLock& operator=(const UniqueLock&) = delete;

    void lock() TVSA_ACQUIRE() { std::unique_lock<std::mutex>::lock(); }
    void unlock() TVSA_RELEASE() { std::unique_lock<std::mutex>::unlock(); }
};

} // namespace thread_safety
