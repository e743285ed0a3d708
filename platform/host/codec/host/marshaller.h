// The marshaller converts trees of flat records to one buffer and back, following endian tables.
//
// A marshalled message is the top-level form, followed without gaps by the blocks that its pointers refer to, depth
// first in field order: after an array come the blocks of each of its elements in turn. Pointer words hold offsets from
// the message's start (0 for null). A string's block is length + 1 bytes, the last one NUL.
#pragma once

#include <vdl/endian-table.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>

namespace host {

// A growing buffer of uninitialised bytes.
class Bytes {
public:
    Bytes() = default;
    Bytes(Bytes&& other) noexcept
        : data_(std::move(other.data_)),
          size_(std::exchange(other.size_, 0)),
          capacity_(std::exchange(other.capacity_, 0)) {}
    Bytes& operator=(Bytes&& other) noexcept {
        data_ = std::move(other.data_);
        size_ = std::exchange(other.size_, 0);
        capacity_ = std::exchange(other.capacity_, 0);
        return *this;
    }

    char* data() { return data_.get(); }
    const char* data() const { return data_.get(); }
    std::size_t size() const { return size_; }
    std::size_t capacity() const { return capacity_; }
    void reserve(std::size_t capacity); // keeps the content; throws std::bad_alloc
    void truncate(std::size_t size) { size_ = size; }
    // Appends count uninitialised bytes and returns their address. Invalidates earlier pointers when the buffer grows.
    char* append(std::size_t count) {
        if (capacity_ - size_ < count) grow(count);
        char* place = data_.get() + size_;
        size_ += count;
        return place;
    }

private:
    void grow(std::size_t count);
    std::unique_ptr<char[]> data_;
    std::size_t size_ = 0, capacity_ = 0;
};

// A table compiled for fast traversal: which words are pointers and to what, which scalars have a byte order.
class Plan;

// The plan of a table; compiled at first use and kept until the process ends. From any thread. Throws
// std::invalid_argument, with the reason and the entry, for an invalid table: an entry outside the record, overlapping
// or unordered entries, an unknown kind, a null nested table, nesting deeper than 16, an element of size 0, no
// terminator within 4096 entries.
const Plan& planOf(const vdl::EndianTable& table);

// Appends the message whose top-level form is at payload to out. Throws std::invalid_argument for a sequence or list
// with a count and a null array, or a string with a length and a null pointer; std::length_error when the message is
// longer than limit bytes; std::bad_alloc. out is then unchanged.
void marshal(const Plan& plan, const void* payload, Bytes& out, std::size_t limit);

// Validates the whole message of size bytes at data, swaps its byte order if swap is set, and replaces its offsets with
// flat pointers, in place; data must be in flat memory. Returns null, or a text with the error and its position, valid
// until the thread's next call; the bytes are then unusable. Takes time linear in size and constant memory. Never
// throws.
// A string with a length and a null pointer is accepted; a sequence or list with a count and a null array is not.
const char* unmarshal(const Plan& plan, char* data, std::size_t size, bool swap) noexcept;

// A hash of the layout that a table describes: equal layouts have equal hashes on every machine, different ones hardly
// ever. Throws like planOf.
std::uint64_t fingerprint(const vdl::EndianTable& table);

// Current use of the flat heap.
struct FlatHeapUsage {
    std::uint64_t blocks; // allocated and not freed
    std::uint64_t bytes;  // requested for those blocks (more where they come from malloc)
    std::uint64_t limit;  // size of the region; 0 where flat blocks come from malloc
};
FlatHeapUsage flatHeapUsage();

} // namespace host
