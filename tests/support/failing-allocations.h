// A program whose memory runs out where a test wants. For one source file of a program: it replaces the program's
// operators new and delete.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <gtest/gtest.h>
#include <new>
#include <utility>

namespace support {

// How many more allocations of this thread succeed; negative: all of them.
inline thread_local long allocationsLeft = -1;
// Whether a shortage elsewhere leaves this thread alone.
inline thread_local bool spared = false;
// A shortage elsewhere: this many allocations succeed, then so many fail, and then all succeed.
inline std::atomic<long> elsewhereSucceed{0}, elsewhereFail{0};
// Blocks of the whole program that were handed out and not given back.
inline std::atomic<long> blocksHeld{0};

inline bool failsElsewhere() {
    if (spared || elsewhereFail <= 0) return false;
    return elsewhereSucceed.fetch_sub(1) <= 0 && elsewhereFail.fetch_sub(1) > 0;
}

inline void* allocate(std::size_t size) {
    if (allocationsLeft == 0 || failsElsewhere()) throw std::bad_alloc();
    if (allocationsLeft > 0) --allocationsLeft;
    if (void* block = std::malloc(size)) {
        ++blocksHeld;
        return block;
    }
    throw std::bad_alloc();
}

inline void* allocateOrNull(std::size_t size) noexcept {
    try {
        return allocate(size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

inline void giveBack(void* block) noexcept {
    if (block != nullptr) --blocksHeld;
    std::free(block);
}

// A test's own doings, for which there always is memory.
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

// While it lives, memory is short for all threads but the one that made it: after so many allocations, so many fail.
class ShortageElsewhere {
public:
    ShortageElsewhere(long succeed, long fail) : fail_(fail) {
        elsewhereSucceed = succeed;
        elsewhereFail = fail;
    }
    ~ShortageElsewhere() { elsewhereFail = 0; }
    ShortageElsewhere(const ShortageElsewhere&) = delete;
    ShortageElsewhere& operator=(const ShortageElsewhere&) = delete;

    bool met() const { return elsewhereFail < fail_; } // whether any has failed

private:
    const EnoughMemory here_;
    const long fail_;
};

// Calls act(n) in a shortage elsewhere that begins after n = 0, 1, 2 ... allocations, until it meets none; after each,
// with memory again, afterwards(n). Returns how many times it met one.
template <class Act, class Afterwards>
long failElsewhereAtEveryAllocation(long fail, const Act& act, const Afterwards& afterwards) {
    constexpr long tooMany = 1000;
    for (long n = 0; n < tooMany; ++n) {
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
    ADD_FAILURE() << "it never gets through";
    return tooMany;
}

// Calls act with memory for 0, 1, 2 ... allocations until it gets through; after each failure afterwards, which is to
// find everything as it was. Returns how often it failed.
template <class Act, class Afterwards> long failAtEveryAllocation(const Act& act, const Afterwards& afterwards) {
    constexpr long tooMany = 10000;
    for (long allocations = 0; allocations < tooMany; ++allocations) {
        bool failed = false;
        allocationsLeft = allocations;
        try {
            act();
        } catch (const std::bad_alloc&) {
            failed = true;
        }
        allocationsLeft = -1;
        if (!failed) return allocations;
        afterwards();
        if (testing::Test::HasFailure()) { // said here: a trace around it would be memory that is held
            ADD_FAILURE() << "with memory for " << allocations << " allocations";
            return allocations;
        }
    }
    ADD_FAILURE() << "it never gets through";
    return tooMany;
}

} // namespace support

// Out of line: the compiler would take a malloc that it sees for a block that delete must not get.
[[gnu::noinline]] void* operator new(std::size_t size) { return support::allocate(size); }
[[gnu::noinline]] void* operator new[](std::size_t size) { return support::allocate(size); }
[[gnu::noinline]] void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return support::allocateOrNull(size);
}
[[gnu::noinline]] void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return support::allocateOrNull(size);
}
[[gnu::noinline]] void operator delete(void* block) noexcept { support::giveBack(block); }
[[gnu::noinline]] void operator delete[](void* block) noexcept { support::giveBack(block); }
[[gnu::noinline]] void operator delete(void* block, std::size_t) noexcept { support::giveBack(block); }
[[gnu::noinline]] void operator delete[](void* block, std::size_t) noexcept { support::giveBack(block); }
