// The memory of one message: all flat blocks of a payload, released together when the message has been sent.
//
// A batch of requests needs eight to nine blocks per request; allocating each of them from the heap would cost more
// than the rest of a send. Not thread-safe; a region may be passed to another thread as a whole.
#pragma once

#include <vdl/flat.h>

#include <algorithm>
#include <cstddef>
#include <memory>
#include <new>
#include <utility>

namespace genrpc {

class FlatRegion {
public:
    struct Release {
        // Frees all memory of the region, including itself.
        void operator()(FlatRegion* region) const noexcept {
            for (Chunk* chunk = region->grown_; chunk != nullptr;) vdlFlatFree(std::exchange(chunk, chunk->next));
            vdlFlatFree(region);
        }
    };
    using Owner = std::unique_ptr<FlatRegion, Release>;

    // Creates a region with space for about firstBytes before it grows. The region itself is in its own memory. Throws
    // std::bad_alloc.
    static Owner create(std::size_t firstBytes) {
        const std::size_t bytes = std::max(firstBytes, sizeof(FlatRegion) + minimumRoom);
        char* memory = static_cast<char*>(vdlFlatAlloc(bytes));
        return Owner(new (memory) FlatRegion(memory + sizeof(FlatRegion), memory + bytes));
    }
    // A completion for asyncSend, which calls it exactly once: it frees the region. Completions are copied on the way
    // to the call, so they cannot own the region.
    static auto giveBack(Owner region) {
        return [held = region.release()] { Owner(held).reset(); };
    }

    // Allocates bytes without alignment (flat records have alignment 1). Throws std::bad_alloc.
    char* allocate(std::size_t bytes) {
        if (static_cast<std::size_t>(end_ - next_) < bytes) grow(bytes);
        return std::exchange(next_, next_ + bytes);
    }

    FlatRegion(const FlatRegion&) = delete;
    FlatRegion& operator=(const FlatRegion&) = delete;

private:
    struct Chunk {
        Chunk* next;
        std::size_t bytes;
    };
    static constexpr std::size_t minimumRoom = 256;

    FlatRegion(char* next, char* end) : next_(next), end_(end) {}

    [[gnu::noinline]] void grow(std::size_t bytes) {
        const std::size_t last =
            grown_ ? grown_->bytes : static_cast<std::size_t>(end_ - reinterpret_cast<char*>(this));
        const std::size_t wanted = std::max(bytes + sizeof(Chunk), 2 * last);
        grown_ = new (vdlFlatAlloc(wanted)) Chunk{grown_, wanted};
        next_ = reinterpret_cast<char*>(grown_ + 1);
        end_ = reinterpret_cast<char*>(grown_) + wanted;
    }

    char* next_;
    char* end_;
    Chunk* grown_ = nullptr;
};

} // namespace genrpc
