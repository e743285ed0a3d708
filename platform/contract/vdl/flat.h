// Flat memory: the words, pointers, strings and lists that make up serializable records.
//
// A flat record has the same layout on every machine: no padding, alignment 1, and pointers of 32 bits. On a 32-bit
// target a flat pointer is an ordinary pointer and flat blocks come from malloc. On a 64-bit host all flat blocks are
// in one address region below 4 GiB, which the platform reserves at first use, so a pointer still fits into 32 bits.
//
// Threads: every function here may be called from any thread; any thread may free a block.
#pragma once

#include <cassert>
#include <cstddef>
#include <cstdint>

// Allocates a block of size bytes (0 counts as 1), aligned to 8. Throws std::bad_alloc when the flat heap is exhausted.
[[nodiscard]] void* vdlFlatAlloc(std::size_t size);
// Frees a block of vdlFlatAlloc; null has no effect.
void vdlFlatFree(void* block) noexcept;

namespace vdl {

// A scalar of a flat record: T at any address, in the machine's byte order.
template <class T> struct [[gnu::packed]] Word {
    T value;

    Word() = default; // leaves the value unset, like a plain scalar
    constexpr Word(T v) : value(v) {}
    constexpr operator T() const { return value; }
};

// A 32-bit pointer to T in flat memory, or null. Does not own its target.
template <class T> class [[gnu::packed]] FlatPtr {
public:
    FlatPtr() = default; // leaves the word unset
    FlatPtr(T* pointer) : word_(static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(pointer))) {
        assert(get() == pointer && "not a flat block");
    }
    FlatPtr(std::nullptr_t) : word_(0) {}

    T* get() const { return reinterpret_cast<T*>(static_cast<std::uintptr_t>(word_)); }
    operator T*() const { return get(); }
    std::uint32_t word() const { return word_; }

private:
    std::uint32_t word_;
};

} // namespace vdl

// A string: length bytes without terminator; data points to a block of length + 1 bytes, the last one NUL, or is null
// when the field is unset.
struct vdlDeserString_t {
    vdl::Word<std::uint32_t> length;
    vdl::FlatPtr<char> data;
};
// A list of strings: count, then an array of count strings, null when unset.
struct vdlDeserBlobString_t {
    vdl::Word<std::uint32_t> count;
    vdl::FlatPtr<vdlDeserString_t> data;
};
// A list of 32-bit words: count, then an array of count words, null when unset.
struct vdlDeserBlobUint32_t {
    vdl::Word<std::uint32_t> count;
    vdl::FlatPtr<vdl::Word<std::uint32_t>> data;
};

static_assert(sizeof(vdlDeserString_t) == 8 && alignof(vdlDeserString_t) == 1);
static_assert(sizeof(vdlDeserBlobString_t) == 8 && alignof(vdlDeserBlobString_t) == 1);
static_assert(sizeof(vdlDeserBlobUint32_t) == 8 && alignof(vdlDeserBlobUint32_t) == 1);
