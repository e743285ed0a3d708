#include "codec/heaps.h"

#include "codec/cases.h"

#include <genrpc/flatten.h>
#include <host/marshaller.h>
#include <tvservice/messages.h>

#include <cstdint>
#include <memory>
#include <sys/mman.h>
#include <utility>

namespace bench {
namespace {

// Records the requested sizes.
class RecordedBlocks {
public:
    char* allocate(std::size_t bytes) {
        sizes.push_back(bytes);
        blocks_.emplace_back(vdlFlatAlloc(bytes), vdlFlatFree);
        return static_cast<char*>(blocks_.back().get());
    }
    std::vector<std::size_t> sizes;

private:
    std::vector<std::unique_ptr<void, decltype(&vdlFlatFree)>> blocks_;
};

} // namespace

std::vector<Heap>& heaps() {
    static std::vector<Heap> all{{"own", vdlFlatAlloc, vdlFlatFree}};
    return all;
}

Region reserveRegion() {
    constexpr std::size_t alignment = std::size_t{32} << 20; // required by mimalloc
    const auto size = static_cast<std::size_t>(host::flatHeapUsage().limit);
    for (std::uintptr_t base = alignment; base + size < UINT32_MAX; base += alignment) {
        void* const address = reinterpret_cast<void*>(base);
        void* const region = mmap(address, size, PROT_READ | PROT_WRITE,
                                  MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_FIXED_NOREPLACE, -1, 0);
        if (region == address) return {static_cast<char*>(region), size};
    }
    throw std::bad_alloc();
}

void returnPages(void* block, std::size_t size) noexcept {
    constexpr std::size_t page = 4096, minimum = std::size_t{1} << 20;
    if (size < minimum) return;
    const std::size_t before = 2 * page - reinterpret_cast<std::uintptr_t>(block) % page;
    madvise(static_cast<char*>(block) + before, (size - before) / page * page, MADV_DONTNEED);
}

std::vector<std::size_t> blockSizes(std::size_t count) {
    RecordedBlocks blocks;
    genrpc::Sequence<tvservice::TvServiceReq_t::Flat> flat;
    genrpc::flatten(sampleRequests(count), flat, blocks);
    return std::move(blocks.sizes);
}

} // namespace bench
