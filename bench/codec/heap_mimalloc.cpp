// mimalloc with the region as its only arena.
#include "codec/heaps.h"

#include <mimalloc.h>

namespace bench {
namespace {

// Passed as not committed: otherwise mimalloc never returns pages to the system.
mi_arena_id_t makeArena() {
    const Region region = reserveRegion();
    mi_arena_id_t arena;
    if (!mi_manage_os_memory_ex(region.begin, region.size, false, false, true, -1, true, &arena))
        throw std::bad_alloc();
    return arena;
}

// A heap serves the thread that created it, and is destroyed when that thread ends.
constinit thread_local mi_heap_t* ofThread = nullptr;

[[gnu::noinline]] mi_heap_t* makeHeap() {
    static const mi_arena_id_t arena = makeArena();
    ofThread = mi_heap_new_in_arena(arena);
    if (!ofThread) throw std::bad_alloc();
    return ofThread;
}

void* allocate(std::size_t size) {
    mi_heap_t* const heap = ofThread ? ofThread : makeHeap();
    if (void* const block = mi_heap_malloc(heap, size)) return block;
    throw std::bad_alloc();
}

void free(void* block) noexcept {
    returnPages(block, mi_usable_size(block));
    mi_free(block);
}

const bool added = addHeap({"mimalloc", allocate, free});

} // namespace
} // namespace bench
