#include "support/test-where.h"

#include <host/marshaller.h>
#include <vdl/flat.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <new>
#include <random>
#include <sanitizer/asan_interface.h>
#include <thread>
#include <vector>

namespace {

constexpr std::size_t kibibyte = 1024, mebibyte = kibibyte * kibibyte;

std::uintptr_t address(const void* block) { return reinterpret_cast<std::uintptr_t>(block); }

// The size of the region that the blocks come from; 0 where they come from malloc.
std::size_t limit() { return static_cast<std::size_t>(host::flatHeapUsage().limit); }

// Allocates blocks of size bytes until the region is exhausted.
std::vector<void*> exhaust(std::size_t size) {
    std::vector<void*> blocks;
    blocks.reserve(limit() / size + 1);
    try {
        for (;;) blocks.push_back(vdlFlatAlloc(size));
    } catch (const std::bad_alloc&) {
    }
    return blocks;
}

void freeAll(std::vector<void*>& blocks) {
    for (void* block : blocks) vdlFlatFree(block);
    blocks.clear();
}

// Frees the blocks in the middle of the region last. They stay in the thread's cache, so no large block can span them.
void freeMiddleLast(std::vector<void*>& blocks) {
    std::rotate(blocks.begin(), blocks.begin() + static_cast<std::ptrdiff_t>(blocks.size() / 2), blocks.end());
    freeAll(blocks);
}

// Checks that a test frees all its blocks.
class FlatHeap : public testing::Test {
protected:
    void TearDown() override {
        const auto after = host::flatHeapUsage();
        EXPECT_EQ(after.blocks, before_.blocks);
        EXPECT_EQ(after.bytes, before_.bytes);
    }

private:
    const host::FlatHeapUsage before_ = host::flatHeapUsage();
};

// Properties that hold only where the flat heap has a memory region of its own.
class FlatRegion : public FlatHeap {
protected:
    // The size, to a mebibyte, of the largest block that can be allocated now. The heap keeps free blocks of threads
    // that ended in other tests, and a large block cannot span those.
    static std::size_t largestBlock() {
        for (std::size_t size = limit() - mebibyte;; size -= mebibyte) {
            try {
                vdlFlatFree(vdlFlatAlloc(size));
                return size;
            } catch (const std::bad_alloc&) {
            }
        }
    }
    static void expectAgain(std::size_t size) {
        EXPECT_GT(size, limit() / 2);
        EXPECT_NO_THROW(vdlFlatFree(vdlFlatAlloc(size)));
    }
};

TEST_F_WHERE(support::flatMemoryIsLimited, FlatRegion, ReusesFreedMemory) {
    for (const std::size_t size : {std::size_t{24}, std::size_t{1000}, 64 * kibibyte, 3 * mebibyte}) {
        const std::size_t rounds = 4 * limit() / size;
        for (std::size_t i = 0; i < std::min<std::size_t>(rounds, 100000); ++i) vdlFlatFree(vdlFlatAlloc(size));
    }
}

TEST_F_WHERE(support::flatMemoryIsLimited, FlatRegion, ThrowsWhenExhaustedAndRemainsUsable) {
    for (const std::size_t size : {4 * kibibyte, 60 * kibibyte, mebibyte - 8}) {
        auto blocks = exhaust(size);
        EXPECT_GT(blocks.size() * size, limit() / 4 * 3) << size;
        EXPECT_THROW((void)vdlFlatAlloc(size), std::bad_alloc);
        vdlFlatFree(blocks.back());
        blocks.back() = vdlFlatAlloc(size);
        freeAll(blocks);
    }
}

TEST_F_WHERE(support::flatMemoryIsLimited, FlatRegion, RejectsABlockLargerThanTheRegion) {
    for (const std::size_t size : {limit(), limit() + 1, SIZE_MAX - 7, SIZE_MAX - 3, SIZE_MAX})
        EXPECT_THROW((void)vdlFlatAlloc(size), std::bad_alloc) << size;
}

TEST_F_WHERE(support::flatMemoryIsLimited, FlatRegion, MergesFreeBlocks) {
    const std::size_t largest = largestBlock();
    auto small = exhaust(4 * kibibyte);
    freeMiddleLast(small);
    expectAgain(largest);
}

TEST_F_WHERE(support::flatMemoryIsLimited, FlatRegion, ReturnsThePagesOfALargeBlockToTheSystem) {
    auto* block = static_cast<char*>(vdlFlatAlloc(8 * mebibyte));
    std::memset(block, 'x', 8 * mebibyte);
    vdlFlatFree(block);
    auto* again = static_cast<char*>(vdlFlatAlloc(8 * mebibyte));
    ASSERT_EQ(again, block) << "the lowest free address is used first";
    EXPECT_TRUE(std::all_of(again, again + 8 * mebibyte, [](char byte) { return byte == 0; }));
    vdlFlatFree(again);
}

TEST_F_WHERE(support::flatMemoryIsLimited, FlatRegion, ReclaimsTheBlocksOfEndedThreads) {
    const std::size_t largest = largestBlock();
    std::thread([] {
        auto blocks = exhaust(4 * kibibyte);
        freeMiddleLast(blocks);
    }).join();
    expectAgain(largest);
}

// ---- with and without a region ----

TEST_F(FlatHeap, ReturnsDistinctAlignedBlocksBelowFourGibibytesForEverySize) {
    std::vector<std::pair<unsigned char*, std::size_t>> blocks;
    for (std::size_t size = 0; size < 200 * kibibyte; size += size < 300 ? 1 : size / 7) {
        auto* block = static_cast<unsigned char*>(vdlFlatAlloc(size));
        EXPECT_EQ(address(block) % 8, 0U) << size;
        EXPECT_LT(address(block) + size, std::uint64_t{1} << 32) << size;
        std::memset(block, static_cast<int>(blocks.size() % 251), size);
        blocks.emplace_back(block, size);
    }
    for (std::size_t i = 0; i < blocks.size(); ++i) {
        const auto [block, size] = blocks[i];
        EXPECT_TRUE(std::all_of(block, block + size, [i](unsigned char byte) { return byte == i % 251; })) << size;
        vdlFlatFree(block);
    }
}

TEST_F(FlatHeap, AllocatesAByteForSizeZero) {
    auto* block = static_cast<char*>(vdlFlatAlloc(0));
    ASSERT_NE(block, nullptr);
    *block = 'x';
    vdlFlatFree(block);
}

TEST_F(FlatHeap, IgnoresNull) { vdlFlatFree(nullptr); }

TEST_F(FlatHeap, CountsBlocksAndRequestedBytes) {
    const auto before = host::flatHeapUsage();
    void* small = vdlFlatAlloc(10);
    void* large = vdlFlatAlloc(mebibyte + 1);
    const auto between = host::flatHeapUsage();
    EXPECT_EQ(between.blocks - before.blocks, 2U);
    if (limit() > 0)
        EXPECT_EQ(between.bytes - before.bytes, mebibyte + 11);
    else
        EXPECT_GE(between.bytes - before.bytes, mebibyte + 11) << "malloc allocates a little more than requested";
    EXPECT_EQ(between.limit, before.limit);
    vdlFlatFree(small);
    vdlFlatFree(large);
}

TEST_F(FlatHeap, AcceptsBlocksFreedByOtherThreads) {
    std::vector<void*> blocks(20000);
    std::thread([&] {
        for (std::size_t i = 0; i < blocks.size(); ++i) blocks[i] = vdlFlatAlloc(i % 500);
    }).join();
    EXPECT_GE(host::flatHeapUsage().blocks, blocks.size());
    std::thread([&] { freeAll(blocks); }).join();
}

struct FreedAtThreadEnd {
    void* block = nullptr;
    ~FreedAtThreadEnd() {
        vdlFlatFree(block);
        vdlFlatFree(vdlFlatAlloc(100));
    }
};

TEST_F(FlatHeap, ServesThreadsThatAreEnding) {
    std::thread([] {
        thread_local FreedAtThreadEnd early; // destroyed after the heap's cache of the thread
        early.block = vdlFlatAlloc(50);
    }).join();
}

TEST_F(FlatHeap, ServesManyThreadsThatExchangeBlocks) {
    constexpr std::size_t threads = 4, rounds = 20000;
    std::vector<std::atomic<unsigned char*>> places(64);
    std::vector<std::thread> workers;
    for (unsigned worker = 0; worker < threads; ++worker) {
        workers.emplace_back([&, worker] {
            std::mt19937 random(worker);
            for (std::size_t i = 0; i < rounds; ++i) {
                const std::size_t size = 4 + (i % 64 == 0 ? random() % (100 * kibibyte) : random() % 600);
                auto* block = static_cast<unsigned char*>(vdlFlatAlloc(size));
                const auto mark = static_cast<unsigned char>(random());
                block[0] = block[size - 1] = mark;
                std::memset(block + 1, mark, 2);
                unsigned char* other = places[random() % places.size()].exchange(block);
                if (other && other[0] != other[2]) ADD_FAILURE() << "a block's content changed between threads";
                vdlFlatFree(other);
            }
        });
    }
    for (auto& worker : workers) worker.join();
    for (auto& place : places) vdlFlatFree(place.load());
}

#ifdef __SANITIZE_ADDRESS__
TEST_F_WHERE(support::flatMemoryIsLimited, FlatRegion, PoisonsUnallocatedMemory) {
    for (const std::size_t size : {std::size_t{5}, std::size_t{24}, 3 * mebibyte}) {
        auto* block = static_cast<char*>(vdlFlatAlloc(size));
        EXPECT_FALSE(__asan_address_is_poisoned(block));
        EXPECT_FALSE(__asan_address_is_poisoned(block + size - 1));
        EXPECT_TRUE(__asan_address_is_poisoned(block + size));
        EXPECT_TRUE(__asan_address_is_poisoned(block - 1));
        vdlFlatFree(block);
        EXPECT_TRUE(__asan_address_is_poisoned(block));
    }
}
#endif

// The region is reserved once per process, so each size is tried in its own process.
std::uint64_t limitOfProcess(const char* megabytes) {
    setenv("TVSA_FLAT_HEAP_MB", megabytes, 1);
    return host::flatHeapUsage().limit;
}

using FlatHeapDeathTest = testing::Test;

TEST_F_WHERE(support::flatMemoryIsLimited, FlatHeapDeathTest, HasTheSizeFromTheEnvironment) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    const auto matches = [](const char* megabytes, std::uint64_t expected) {
        EXPECT_EXIT(std::_Exit(limitOfProcess(megabytes) == expected * mebibyte ? 0 : 1), testing::ExitedWithCode(0),
                    "")
            << megabytes;
    };
    matches("32", 32);
    matches("512", 512);
    for (const char* unusable : {"", "31", "2049", "64MB", "-64", "99999999999999999999"}) matches(unusable, 256);
}

} // namespace
