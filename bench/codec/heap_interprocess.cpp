// The best-fit allocator of Boost.Interprocess in the region.
#include "codec/heaps.h"

#include <boost/interprocess/mem_algo/rbtree_best_fit.hpp>
#include <boost/interprocess/sync/mutex_family.hpp>

namespace bench {
namespace {

using BestFit = boost::interprocess::rbtree_best_fit<boost::interprocess::mutex_family>;

BestFit& bestFit() {
    static BestFit& instance = []() -> BestFit& {
        const Region region = reserveRegion();
        return *new (region.begin) BestFit(region.size, 0);
    }();
    return instance;
}

void* allocate(std::size_t size) {
    // Sizes near SIZE_MAX overflow in the library, which then returns a block of a few bytes.
    if (size >= bestFit().get_size()) throw std::bad_alloc();
    if (void* const block = bestFit().allocate(size)) return block;
    throw std::bad_alloc();
}

void free(void* block) noexcept {
    returnPages(block, bestFit().size(block));
    bestFit().deallocate(block);
}

const bool added = addHeap({"Boost.Interprocess", allocate, free});

} // namespace
} // namespace bench
