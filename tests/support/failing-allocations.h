// Lets allocations fail where a test wants: in operator new, for flat blocks and, unless a sanitizer replaces it, in
// the C heap. Include it in one source file of a program only, because it replaces global functions.
#pragma once

#include <vdl/flat.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <new>
#include <system_error>
#include <utility>

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define SUPPORT_HEAP_IS_THE_SANITIZERS
#endif
#elif defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define SUPPORT_HEAP_IS_THE_SANITIZERS
#endif
#if defined(__GLIBC__) && !defined(SUPPORT_HEAP_IS_THE_SANITIZERS)
#define SUPPORT_C_HEAP_FAILS
extern "C" void* __libc_malloc(std::size_t size) noexcept;
extern "C" void* __libc_calloc(std::size_t count, std::size_t size) noexcept;
#endif

namespace support {

// The number of further allocations of this thread that succeed; negative: all.
inline thread_local long allocationsLeft = -1;
// Whether only one allocation fails and later ones succeed again.
inline thread_local bool passing = false;
// The number of failed allocations of this thread.
inline thread_local long allocationsFailed = 0;
// Whether this thread is exempt from a shortage elsewhere.
inline thread_local bool spared = false;
// A shortage elsewhere: this many allocations succeed, then so many fail, and then all succeed.
inline std::atomic<long> elsewhereSucceed{0}, elsewhereFail{0};
// Allocated blocks of the whole program that are not yet freed.
inline std::atomic<long> blocksHeld{0};

inline bool failsElsewhere() {
    if (spared || elsewhereFail <= 0) return false;
    return elsewhereSucceed.fetch_sub(1) <= 0 && elsewhereFail.fetch_sub(1) > 0;
}

inline bool failsHere() {
    if (allocationsLeft != 0) {
        if (allocationsLeft > 0) --allocationsLeft;
        return false;
    }
    if (passing) allocationsLeft = -1;
    ++allocationsFailed;
    return true;
}

inline bool fails() {
    if (!failsHere() && !failsElsewhere()) return false;
    errno = ENOMEM;
    return true;
}

inline void* allocateOrNull(std::size_t size) noexcept {
    if (fails()) return nullptr;
#ifdef SUPPORT_C_HEAP_FAILS
    void* const block = __libc_malloc(size);
#else
    void* const block = std::malloc(size);
#endif
    if (block != nullptr) ++blocksHeld;
    return block;
}

inline void* allocate(std::size_t size) {
    if (void* const block = allocateOrNull(size)) return block;
    throw std::bad_alloc();
}

inline void release(void* block) noexcept {
    if (block != nullptr) --blocksHeld;
    std::free(block);
}

// Exempts the test's own code from shortages.
class EnoughMemory {
public:
    EnoughMemory() : left_(std::exchange(allocationsLeft, -1)), spared_(std::exchange(spared, true)) {}
    ~EnoughMemory() {
        allocationsLeft = left_;
        spared = spared_;
    }
    EnoughMemory(const EnoughMemory&) = delete;
    EnoughMemory& operator=(const EnoughMemory&) = delete;

private:
    const long left_;
    const bool spared_;
};

// During its lifetime, all other threads run short of memory: `succeed` allocations succeed, then `fail` allocations
// fail.
class ShortageElsewhere {
public:
    ShortageElsewhere(long succeed, long fail) : fail_(fail) {
        elsewhereSucceed = succeed;
        elsewhereFail = fail;
    }
    ~ShortageElsewhere() { elsewhereFail = 0; }
    ShortageElsewhere(const ShortageElsewhere&) = delete;
    ShortageElsewhere& operator=(const ShortageElsewhere&) = delete;

    bool met() const { return elsewhereFail < fail_; } // whether any allocation has failed

private:
    const EnoughMemory here_;
    const long fail_;
};

// Calls act(n) with a shortage elsewhere that begins after n = 0, 1, 2 ... allocations, until no allocation fails.
// After each call, with memory again, it calls afterwards(n). Returns the n at which no allocation failed. A larger
// step skips some n.
template <class Act, class Afterwards>
long failElsewhereAtEveryAllocation(long fail, const Act& act, const Afterwards& afterwards, long step = 1) {
    constexpr long tooMany = 10000;
    for (long n = 0; n < tooMany; n += step) {
        bool met;
        {
            const ShortageElsewhere shortage(n, fail);
            act(n);
            met = shortage.met();
        }
        afterwards(n);
        if (testing::Test::HasFailure()) {
            ADD_FAILURE() << "with " << fail << " failures after " << n << " allocations elsewhere";
            return n;
        }
        if (!met) return n;
    }
    ADD_FAILURE() << "it never succeeds";
    return tooMany;
}

// Calls act with memory for n allocations. Returns whether it succeeded. A thread that cannot be created counts as a
// shortage.
template <class Act> bool succeedsWith(long n, const Act& act) {
    struct EnoughAfterwards {
        ~EnoughAfterwards() { allocationsLeft = -1; }
    } enough;
    allocationsLeft = n;
    try {
        act();
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    } catch (const std::system_error& error) {
        if (error.code() != std::errc::resource_unavailable_try_again) throw;
        return false;
    }
}

// Lasting: all allocations from one on fail. Passing: only that one fails.
enum class Shortage { Lasting, Passing };

// The result of a call: whether it succeeded, and whether an allocation failed.
struct Run {
    bool succeeded, allocationFailed;
};
template <class Act> Run runShortAfter(long allocations, Shortage shortage, const Act& act) {
    passing = shortage == Shortage::Passing;
    const long before = allocationsFailed;
    const bool succeeded = succeedsWith(allocations, act);
    passing = false;
    return {succeeded, allocationsFailed != before};
}

inline const char* textOf(Shortage shortage) {
    return shortage == Shortage::Passing ? " allocations and all but the next" : " allocations";
}

// Calls act with memory for 0, 1, 2 ... allocations until it succeeds. After each failure it calls afterwards, which
// must find the state unchanged. Returns the number of failures.
template <class Act, class Afterwards>
long failAtEveryAllocation(const Act& act, const Afterwards& afterwards, Shortage shortage = Shortage::Lasting) {
    constexpr long tooMany = 10000;
    for (long allocations = 0; allocations < tooMany; ++allocations) {
        const Run run = runShortAfter(allocations, shortage, act);
        if (run.succeeded) {
            if (run.allocationFailed && shortage == Shortage::Passing)
                ADD_FAILURE() << "it ignores the failure of allocation " << allocations
                              << ", and the later ones did not fail";
            return allocations;
        }
        afterwards();
        if (testing::Test::HasFailure()) { // reported here, because a SCOPED_TRACE would hold memory
            ADD_FAILURE() << "with memory for " << allocations << textOf(shortage);
            return allocations;
        }
    }
    ADD_FAILURE() << "it never succeeds";
    return tooMany;
}

// For an act that may succeed although an allocation failed. Calls it with a shortage that begins after 0, 1, 2 ...
// allocations, until no allocation fails. After each call it calls afterwards(whether act succeeded). Returns the
// number of calls in which an allocation failed.
template <class Act, class Afterwards>
long runShortAtEveryAllocation(Shortage shortage, const Act& act, const Afterwards& afterwards) {
    constexpr long tooMany = 10000;
    for (long allocations = 0; allocations < tooMany; ++allocations) {
        const Run run = runShortAfter(allocations, shortage, act);
        afterwards(run.succeeded);
        if (testing::Test::HasFailure()) {
            ADD_FAILURE() << "with memory for " << allocations << textOf(shortage);
            return allocations;
        }
        if (!run.allocationFailed) return allocations;
    }
    ADD_FAILURE() << "an allocation fails in every run";
    return tooMany;
}

} // namespace support

// Not inlined: the compiler would see the malloc and warn that delete must not free such a block.
[[gnu::noinline]] void* operator new(std::size_t size) { return support::allocate(size); }
[[gnu::noinline]] void* operator new[](std::size_t size) { return support::allocate(size); }
[[gnu::noinline]] void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return support::allocateOrNull(size);
}
[[gnu::noinline]] void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return support::allocateOrNull(size);
}
[[gnu::noinline]] void operator delete(void* block) noexcept { support::release(block); }
[[gnu::noinline]] void operator delete[](void* block) noexcept { support::release(block); }
[[gnu::noinline]] void operator delete(void* block, std::size_t) noexcept { support::release(block); }
[[gnu::noinline]] void operator delete[](void* block, std::size_t) noexcept { support::release(block); }

// Interposes the library's function of this name; visible, so that the library calls it, too.
[[gnu::noinline, gnu::visibility("default")]] void* vdlFlatAlloc(std::size_t size) {
    static const auto real = [] {
        const support::EnoughMemory forTheLookUp;
        return reinterpret_cast<void* (*)(std::size_t)>(
            dlsym(RTLD_NEXT, sizeof size == sizeof(unsigned) ? "_Z12vdlFlatAllocj" : "_Z12vdlFlatAllocm"));
    }();
    if (support::fails()) throw std::bad_alloc();
    return real(size);
}

#ifdef SUPPORT_C_HEAP_FAILS
extern "C" [[gnu::noinline]] void* malloc(std::size_t size) noexcept {
    return support::fails() ? nullptr : __libc_malloc(size);
}
extern "C" [[gnu::noinline]] void* calloc(std::size_t count, std::size_t size) noexcept {
    return support::fails() ? nullptr : __libc_calloc(count, size);
}
#endif
