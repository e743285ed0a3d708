// The central part of the flat heap, which the threads' caches allocate from: spans divided into blocks of one size
// class, and large blocks.
#pragma once

#include "flat-block.h"
#include "flat-spans.h"

#include <array>
#include <thread-safety/mutex.h>
#include <vector>

namespace host {

// From any thread. Never destroyed: blocks are freed until the process ends.
class FlatCentral {
public:
    // Throws std::bad_alloc when the region cannot be reserved.
    static FlatCentral& instance();

    // Gets a list of up to wanted free blocks, possibly none. Returns how many.
    std::uint32_t take(unsigned sizeClass, std::uint32_t wanted, Header*& list) noexcept;
    // Takes back a list of free blocks of one class; a span without allocated blocks returns to the region.
    void give(Header* list) noexcept;

    // A free block for size bytes in a span of its own, or null.
    Header* takeLarge(std::size_t size) noexcept;
    void giveLarge(Header* block, std::size_t size) noexcept;

    std::size_t limit() const { return limit_; }

private:
    static constexpr std::uint32_t spanGranules = 4;
    static constexpr std::uint32_t spanSize = spanGranules * FlatSpans::granule;

    // A span of one class; spans with free blocks are linked by index.
    struct Span {
        Header* free;         // freed blocks
        std::uint32_t carved; // bytes divided into blocks so far
        std::uint32_t out;    // blocks that have been taken
        std::uint32_t next, previous;
        std::uint32_t first; // the span's first granule; valid at each of its granules
    };

    FlatCentral();
    std::uint32_t newSpan(unsigned sizeClass) noexcept TVSA_REQUIRES(mutex_);
    Header* takeFrom(std::uint32_t index, unsigned sizeClass) noexcept TVSA_REQUIRES(mutex_);
    bool isFull(const Span& span, unsigned sizeClass) const {
        return span.free == nullptr && span.carved + sizeOfClass(sizeClass) > spanSize;
    }
    void link(std::uint32_t index, unsigned sizeClass) noexcept TVSA_REQUIRES(mutex_);
    void unlink(std::uint32_t index, unsigned sizeClass) noexcept TVSA_REQUIRES(mutex_);

    thread_safety::Mutex mutex_;
    FlatSpans spans_ TVSA_GUARDED_BY(mutex_);
    std::vector<Span> classSpans_ TVSA_GUARDED_BY(mutex_); // by granule
    std::array<std::uint32_t, sizeClasses> withRoom_ TVSA_GUARDED_BY(mutex_);
    const std::size_t limit_; // bytes
};

} // namespace host
