#include <cstdint>

#if UINTPTR_MAX > UINT32_MAX

#include "flat-central.h"

#include <sys/mman.h>

namespace host {
namespace {

// From this size on, freeing a large block returns its pages to the system.
constexpr std::size_t worthReturning = std::size_t{1} << 20;

} // namespace

FlatCentral& FlatCentral::instance() {
    static FlatCentral& central = *new FlatCentral;
    return central;
}

FlatCentral::FlatCentral() : classSpans_(spans_.granules()), limit_(spans_.granules() * FlatSpans::granule) {
    withRoom_.fill(FlatSpans::none);
}

std::uint32_t FlatCentral::take(unsigned sizeClass, std::uint32_t wanted, Header*& list) noexcept {
    thread_safety::LockGuard lock(mutex_);
    list = nullptr;
    std::uint32_t taken = 0;
    while (taken < wanted) {
        std::uint32_t index = withRoom_[sizeClass];
        // A partly filled batch is better than a new span.
        if (index == FlatSpans::none && (taken > 0 || (index = newSpan(sizeClass)) == FlatSpans::none)) break;
        Header* block = takeFrom(index, sizeClass);
        block->setNext(list);
        list = block;
        ++taken;
    }
    return taken;
}

void FlatCentral::give(Header* list) noexcept {
    thread_safety::LockGuard lock(mutex_);
    while (list) {
        Header* const block = list;
        list = block->next();
        const unsigned sizeClass = block->sizeClass();
        const std::uint32_t index = classSpans_[spans_.indexOf(block)].first;
        Span& span = classSpans_[index];
        if (isFull(span, sizeClass)) link(index, sizeClass);
        block->setNext(span.free);
        span.free = block;
        if (--span.out > 0) continue;
        unlink(index, sizeClass);
        spans_.give(index);
    }
}

Header* FlatCentral::takeLarge(std::size_t size) noexcept {
    if (size >= limit()) return nullptr;
    const std::size_t granules = (size + sizeof(Header) + FlatSpans::granule - 1) / FlatSpans::granule;
    char* span;
    {
        thread_safety::LockGuard lock(mutex_);
        const std::uint32_t index = spans_.take(static_cast<std::uint32_t>(granules));
        if (index == FlatSpans::none) return nullptr;
        span = spans_.address(index);
    }
    ASAN_POISON_MEMORY_REGION(span, granules * FlatSpans::granule);
    return Header::makeFree(span, largeClass);
}

void FlatCentral::giveLarge(Header* block, std::size_t size) noexcept {
    if (size >= worthReturning) {
        // This also discards the page with the header: the header of a block that is in no list is never read.
        madvise(block, size + sizeof(Header), MADV_DONTNEED);
    }
    thread_safety::LockGuard lock(mutex_);
    spans_.give(spans_.indexOf(block));
}

std::uint32_t FlatCentral::newSpan(unsigned sizeClass) noexcept {
    const std::uint32_t index = spans_.take(spanGranules);
    if (index == FlatSpans::none) return index;
    for (std::uint32_t i = 0; i < spanGranules; ++i) classSpans_[index + i].first = index;
    classSpans_[index].free = nullptr;
    classSpans_[index].carved = 0;
    classSpans_[index].out = 0;
    link(index, sizeClass);
    ASAN_POISON_MEMORY_REGION(spans_.address(index), spanSize);
    return index;
}

Header* FlatCentral::takeFrom(std::uint32_t index, unsigned sizeClass) noexcept {
    Span& span = classSpans_[index];
    Header* block = span.free;
    if (block) {
        span.free = block->next();
    } else {
        block = Header::makeFree(spans_.address(index) + span.carved, sizeClass);
        span.carved += sizeOfClass(sizeClass);
    }
    ++span.out;
    if (isFull(span, sizeClass)) unlink(index, sizeClass);
    return block;
}

void FlatCentral::link(std::uint32_t index, unsigned sizeClass) noexcept {
    std::uint32_t& head = withRoom_[sizeClass];
    classSpans_[index].previous = FlatSpans::none;
    classSpans_[index].next = head;
    if (head != FlatSpans::none) classSpans_[head].previous = index;
    head = index;
}

void FlatCentral::unlink(std::uint32_t index, unsigned sizeClass) noexcept {
    const Span& span = classSpans_[index];
    if (span.previous != FlatSpans::none)
        classSpans_[span.previous].next = span.next;
    else
        withRoom_[sizeClass] = span.next;
    if (span.next != FlatSpans::none) classSpans_[span.next].previous = span.previous;
}

} // namespace host

#endif
