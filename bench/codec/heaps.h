// Heaps that could serve flat blocks: the product's, and those of libraries, with a similar region. Each library has a
// source file that is linked if its package is installed.
#pragma once

#include "common/report.h"

#include <cstddef>
#include <new>
#include <string>
#include <vector>

namespace bench {

struct Heap {
    std::string name;
    void* (*allocate)(std::size_t size); // throws std::bad_alloc
    void (*free)(void* block) noexcept;
};

// The product's heap first. Those of the libraries register themselves when the program is loaded, in no particular
// order.
std::vector<Heap>& heaps();

// For a library's source file, so that linking it adds its heap.
inline bool addHeap(Heap heap) {
    heaps().push_back(std::move(heap));
    return true;
}

// A region below 4 GiB for a library, as large as the flat heap. reserveRegion() throws std::bad_alloc.
struct Region {
    char* begin;
    std::size_t size;
};
Region reserveRegion();
// Returns the pages of a block that is about to be freed to the system if the block has the size for which the
// product's heap does so. Keeps the first and the last page, where a library may have links.
void returnPages(void* block, std::size_t size) noexcept;

// The sizes of the blocks of `count` requests if each string and each list has its own block.
std::vector<std::size_t> blockSizes(std::size_t count);
// The size of a message's region, which is one block.
inline constexpr std::size_t messageBytes = 16384;

// Measures memory after a burst, exhaustion and misuse, each in a child process. Must be called while the process has
// one thread.
void reportHeapsIsolated(const Options& options, const Report& report);

} // namespace bench
