// The blocks of the flat heap and their size classes.
//
// A block is a header of 8 bytes and the caller's bytes. Size classes include the header; there are four per power of
// two, so a block wastes at most a fifth of its size.
#pragma once

#include <array>
#include <bit>
#include <cassert>
#include <cstddef>
#include <cstdint>
#include <sanitizer/asan_interface.h>

namespace host {

inline constexpr std::size_t largestClassSize = std::size_t{64} * 1024;
inline constexpr unsigned sizeClasses = 45;
inline constexpr unsigned largeClass = sizeClasses; // a block with granules of its own

// The class for size bytes including the header, up to largestClassSize.
constexpr unsigned classOf(std::size_t size) {
    const std::size_t last = (size < 32 ? 32 : size) - 1;
    const auto width = static_cast<unsigned>(std::bit_width(last));
    return (width - 6) * 4 + static_cast<unsigned>((last >> (width - 3)) & 3) + 1;
}
constexpr std::uint32_t sizeOfClass(unsigned sizeClass) {
    return sizeClass == 0 ? 32 : (5 + (sizeClass - 1) % 4) << (3 + (sizeClass - 1) / 4);
}
static_assert(classOf(1) == 0 && classOf(33) == 1 && classOf(64) == 4 && classOf(65) == 5);
static_assert(classOf(largestClassSize) == sizeClasses - 1 && sizeOfClass(sizeClasses - 1) == largestClassSize);

// How many blocks of a class move between a thread's cache and the central lists at a time.
inline constexpr auto batchOfClass = [] {
    std::array<std::uint32_t, sizeClasses> batches{};
    for (unsigned c = 0; c < sizeClasses; ++c) {
        const std::uint32_t fitting = 32 * 1024 / sizeOfClass(c);
        batches[c] = fitting < 1 ? 1 : fitting > 128 ? 128 : fitting;
    }
    return batches;
}();

// In a free block, word_ is the address of the next block of its list; in an allocated block, the size that its caller
// requested. With AddressSanitizer, headers are out of bounds for all other code, hence the attribute.
class Header {
public:
    [[gnu::no_sanitize_address]] static Header* makeFree(char* place, unsigned sizeClass) {
        auto* header = reinterpret_cast<Header*>(place);
        header->word_ = 0;
        header->sizeClass_ = static_cast<std::uint16_t>(sizeClass);
        header->state_ = free;
        return header;
    }
    static Header* of(void* payload) { return static_cast<Header*>(payload) - 1; }

    void* payload() { return this + 1; }
    [[gnu::no_sanitize_address]] unsigned sizeClass() const { return sizeClass_; }
    [[gnu::no_sanitize_address]] std::uint32_t size() const { return word_; }
    [[gnu::no_sanitize_address]] Header* next() const {
        return reinterpret_cast<Header*>(static_cast<std::uintptr_t>(word_));
    }
    [[gnu::no_sanitize_address]] void setNext(const Header* next) {
        word_ = static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(next));
    }

    [[gnu::no_sanitize_address]] void handOut(std::uint32_t size) {
        word_ = size;
        state_ = live;
        ASAN_UNPOISON_MEMORY_REGION(payload(), size);
    }
    [[gnu::no_sanitize_address]] void takeBack() {
        assert(state_ == live && "freed twice, or not a flat block");
        state_ = free;
        ASAN_POISON_MEMORY_REGION(payload(), word_);
    }

private:
    static constexpr std::uint16_t live = 0xF1A7, free = 0xF4EE;

    std::uint32_t word_;
    std::uint16_t sizeClass_;
    std::uint16_t state_;
};
static_assert(sizeof(Header) == 8);

} // namespace host
