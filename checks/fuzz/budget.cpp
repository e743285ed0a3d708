#include "budget.h"

#include "target.h"

#include <host/marshaller.h>

#include <algorithm>
#include <malloc.h>
#include <new>

#if defined(__clang__)
#define FUZZ_NOT_COUNTED __attribute__((no_sanitize("coverage")))
#else
#define FUZZ_NOT_COUNTED
#endif

namespace fuzz {
namespace {

bool counting = false;
std::int64_t bytes = 0, mostBytes = 0;
std::uint64_t steps = 0;

FUZZ_NOT_COUNTED void* allocate(std::size_t size, std::size_t alignment) noexcept {
    void* block = alignment == 0 ? std::malloc(size == 0 ? 1 : size)
                                 : std::aligned_alloc(alignment, (size + alignment - 1) / alignment * alignment);
    if (counting && block) {
        bytes += static_cast<std::int64_t>(malloc_usable_size(block));
        mostBytes = std::max(mostBytes, bytes);
    }
    return block;
}
FUZZ_NOT_COUNTED void* allocateOrThrow(std::size_t size, std::size_t alignment) {
    if (void* block = allocate(size, alignment)) return block;
    throw std::bad_alloc();
}
FUZZ_NOT_COUNTED void release(void* block) noexcept {
    // A block from before the measurement lowers the sum; what a measurement forgives by that is what it gave back.
    if (counting && block) bytes -= static_cast<std::int64_t>(malloc_usable_size(block));
    std::free(block);
}

} // namespace

Measure::Measure() : firstStep_(steps), flatBytes_(host::flatHeapUsage().bytes) {
    bytes = mostBytes = 0;
    firstStep_ = steps;
    counting = true;
}
Measure::~Measure() { counting = false; }

void Measure::check(const std::string& what, std::size_t inputSize, std::size_t resultBytes, std::uint64_t stepsPerByte,
                    std::uint64_t resultSteps) {
    const Pause pause;
    const std::uint64_t used = steps - firstStep_;
    const std::uint64_t flat = host::flatHeapUsage().bytes;
    const std::uint64_t memory = static_cast<std::uint64_t>(mostBytes) + (flat > flatBytes_ ? flat - flatBytes_ : 0);
    const auto of = " of an input of " + std::to_string(inputSize) + " bytes";
    expect(memory <= resultBytes + 4096 + 4 * std::uint64_t{inputSize},
           what + of + " takes " + std::to_string(memory) + " bytes of memory");
    expect(used <= 1000 + resultSteps + stepsPerByte * inputSize,
           what + of + " takes " + std::to_string(used) + " steps");
}

Pause::Pause() : former_(counting), steps_(steps) { counting = false; }
Pause::~Pause() {
    counting = former_;
    steps = steps_;
}

} // namespace fuzz

#if defined(FUZZ_COUNT_STEPS)
extern "C" FUZZ_NOT_COUNTED void __wrap___sanitizer_cov_trace_pc_guard_init(std::uint32_t*, std::uint32_t*) {}
extern "C" FUZZ_NOT_COUNTED void __wrap___sanitizer_cov_trace_pc_guard(std::uint32_t*) { ++fuzz::steps; }
#endif

// All of the program's, those of the libraries under test too.
#define FUZZ_NEW FUZZ_NOT_COUNTED __attribute__((visibility("default"))) void*
#define FUZZ_DELETE FUZZ_NOT_COUNTED __attribute__((visibility("default"))) void
FUZZ_NEW operator new(std::size_t size) { return fuzz::allocateOrThrow(size, 0); }
FUZZ_NEW operator new[](std::size_t size) { return fuzz::allocateOrThrow(size, 0); }
FUZZ_NEW operator new(std::size_t size, const std::nothrow_t&) noexcept { return fuzz::allocate(size, 0); }
FUZZ_NEW operator new[](std::size_t size, const std::nothrow_t&) noexcept { return fuzz::allocate(size, 0); }
FUZZ_NEW operator new(std::size_t size, std::align_val_t to) {
    return fuzz::allocateOrThrow(size, static_cast<std::size_t>(to));
}
FUZZ_NEW operator new[](std::size_t size, std::align_val_t to) {
    return fuzz::allocateOrThrow(size, static_cast<std::size_t>(to));
}
FUZZ_DELETE operator delete(void* block) noexcept { fuzz::release(block); }
FUZZ_DELETE operator delete[](void* block) noexcept { fuzz::release(block); }
FUZZ_DELETE operator delete(void* block, std::size_t) noexcept { fuzz::release(block); }
FUZZ_DELETE operator delete[](void* block, std::size_t) noexcept { fuzz::release(block); }
FUZZ_DELETE operator delete(void* block, const std::nothrow_t&) noexcept { fuzz::release(block); }
FUZZ_DELETE operator delete[](void* block, const std::nothrow_t&) noexcept { fuzz::release(block); }
FUZZ_DELETE operator delete(void* block, std::align_val_t) noexcept { fuzz::release(block); }
FUZZ_DELETE operator delete[](void* block, std::align_val_t) noexcept { fuzz::release(block); }
FUZZ_DELETE operator delete(void* block, std::size_t, std::align_val_t) noexcept { fuzz::release(block); }
FUZZ_DELETE operator delete[](void* block, std::size_t, std::align_val_t) noexcept { fuzz::release(block); }
