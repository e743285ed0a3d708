// The flat heap when a thread has no memory for its cache.
#include "unit/shortage-fixture.h"

#include <new>
#include <thread>

namespace {

using namespace shortage_test;

TEST(FlatHeapWithoutMemory, AllocatesAThreadsFirstBlockOrThrows) {
    vdlFlatFree(vdlFlatAlloc(1)); // creates objects that are kept after the first use
    for (const Shortage shortage : shortages) {
        bool met = true, served = false;
        long allocations = 0;
        for (; met; ++allocations) {
            ASSERT_LT(allocations, 100);
            const auto before = host::flatHeapUsage().blocks;
            std::thread([&] {
                support::passing = shortage == Shortage::Passing;
                const auto take = [] { vdlFlatFree(vdlFlatAlloc(100)); };
                const bool succeeded = support::succeedsWith(allocations, take);
                met = support::allocationsFailed > 0;
                served = served || (met && succeeded);
                EXPECT_TRUE(succeeded || met);
            }).join();
            EXPECT_EQ(host::flatHeapUsage().blocks, before);
        }
        EXPECT_GT(allocations, 1);
        const bool fromTheCHeap = host::flatHeapUsage().limit == 0;
        EXPECT_TRUE(served || fromTheCHeap) << "the block was allocated without a cache";
    }
}

} // namespace
