#include <cstdint>

#if UINTPTR_MAX > UINT32_MAX

#include "codec/flat-heap-size.h"
#include "flat-spans.h"
#include "log/log.h"

#include <algorithm>
#include <new>
#include <string>
#include <sys/mman.h>

namespace host {
namespace {

constexpr std::size_t mebibyte = std::size_t{1} << 20;

// The configured size of the heap in bytes.
std::size_t wantedSize() {
    std::string problem;
    const auto megabytes = flatHeapMegabytes.load()(problem);
    if (!problem.empty()) HOST_LOG(vdl, vdlDebugWarning, "%s", problem.c_str());
    return megabytes * mebibyte;
}

// Above the usual addresses of a program without position independence and its break.
constexpr std::uintptr_t lowestBase = 0x10000000;
// A little below 4 GiB, so that the address after the last block fits into 32 bits, too.
constexpr std::uintptr_t regionEnd = 0xFFFF0000;

char* reserve(std::size_t size) {
    for (std::uintptr_t base = lowestBase; base + size <= regionEnd; base += 16 * mebibyte) {
        void* const wanted = reinterpret_cast<void*>(base);
        void* const region = mmap(wanted, size, PROT_READ | PROT_WRITE,
                                  MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_FIXED_NOREPLACE, -1, 0);
        if (region == wanted) return static_cast<char*>(region);
        // Kernels without MAP_FIXED_NOREPLACE treat the address as a hint.
        if (region != MAP_FAILED) munmap(region, size);
    }
    HOST_LOG(vdl, vdlDebugFailure, "no free range of %zu MiB below 4 GiB for the flat heap", size / mebibyte);
    throw std::bad_alloc();
}

} // namespace

FlatSpans::FlatSpans() {
    nameModule(Module::vdl, "vdl");
    const std::size_t size = wantedSize();
    runs_.resize(size / granule);
    base_ = reserve(size);
    set(0, granules(), true);
}

void FlatSpans::set(std::uint32_t first, std::uint32_t length, bool free) noexcept {
    runs_[first].length = length;
    runs_[first].free = free;
    runs_[first + length - 1].first = first;
}

std::uint32_t FlatSpans::take(std::uint32_t count) noexcept {
    for (std::uint32_t first = lowest_; first < granules(); first += runs_[first].length) {
        const std::uint32_t length = runs_[first].length;
        if (!runs_[first].free || length < count) continue;
        if (length > count) set(first + count, length - count, true);
        set(first, count, false);
        if (first == lowest_) lowest_ = first + count;
        return first;
    }
    return none;
}

void FlatSpans::give(std::uint32_t first) noexcept {
    std::uint32_t length = runs_[first].length;
    if (const std::uint32_t next = first + length; next < granules() && runs_[next].free) length += runs_[next].length;
    if (first > 0) {
        if (const std::uint32_t before = runs_[first - 1].first; runs_[before].free) {
            length += first - before;
            first = before;
        }
    }
    set(first, length, true);
    lowest_ = std::min(lowest_, first);
}

} // namespace host

#endif
