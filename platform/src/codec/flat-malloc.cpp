// The flat heap of targets whose pointers have 32 bits: malloc, with counts.
#include <cstdint>

#if UINTPTR_MAX == UINT32_MAX

#include <host/marshaller.h>
#include <vdl/flat.h>

#include <atomic>
#include <cstdlib>
#include <malloc.h>
#include <new>

namespace {

std::atomic<std::size_t> blocks = 0, bytes = 0;

} // namespace

void* vdlFlatAlloc(std::size_t size) {
    void* block = std::malloc(size == 0 ? 1 : size);
    if (!block) throw std::bad_alloc();
    blocks.fetch_add(1, std::memory_order_relaxed);
    bytes.fetch_add(malloc_usable_size(block), std::memory_order_relaxed);
    return block;
}

void vdlFlatFree(void* block) noexcept {
    if (!block) return;
    blocks.fetch_sub(1, std::memory_order_relaxed);
    bytes.fetch_sub(malloc_usable_size(block), std::memory_order_relaxed);
    std::free(block);
}

namespace host {

FlatHeapUsage flatHeapUsage() {
    return {blocks.load(std::memory_order_relaxed), bytes.load(std::memory_order_relaxed), 0};
}

} // namespace host

#endif
