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
// Blocks of the whole program that were handed out and not given back.
inline std::atomic<long> blocksHeld{0};

inline void* allocate(std::size_t size) {
    if (allocationsLeft == 0) throw std::bad_alloc();
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
    EnoughMemory() : left_(std::exchange(allocationsLeft, -1)) {}
    ~EnoughMemory() { allocationsLeft = left_; }
    EnoughMemory(const EnoughMemory&) = delete;
    EnoughMemory& operator=(const EnoughMemory&) = delete;

private:
    const long left_;
};

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
