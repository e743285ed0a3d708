// Heaps that could serve flat blocks: ours, and libraries that are given a region like ours. Each library has a source
// file that is linked when its package is there.
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

// Ours first. The libraries add theirs when the program is loaded, in no order.
std::vector<Heap>& heaps();

// For a library's source file: its heap is there when the file is linked.
inline bool addHeap(Heap heap) {
    heaps().push_back(std::move(heap));
    return true;
}

// Memory below 4 GiB for a library, as large as the flat heap. Throws std::bad_alloc.
struct Region {
    char* begin;
    std::size_t size;
};
Region reserveRegion();
// Gives the pages of a block that is about to be freed back to the system when it is as large as ours demands for that.
// The first and the last page stay: a library keeps its links there.
void returnPages(void* block, std::size_t size) noexcept;

// The sizes of the blocks that `count` requests take when each string and list has a block of its own.
std::vector<std::size_t> blockSizes(std::size_t count);
// The one block that a message's region takes.
inline constexpr std::size_t messageBytes = 16384;

// Memory after a burst, exhaustion and misuse, each in a process of its own. To be called while there is one thread.
void reportHeapsApart(const Options& options, const Report& report);

} // namespace bench
