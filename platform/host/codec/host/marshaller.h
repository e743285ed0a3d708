// The marshaller: flat trees to one buffer and back, following endian tables.
//
// A marshalled message is the top-level form followed by the blocks that its pointers lead to, depth first in field
// order (an array, then for each of its elements in turn what the element leads to), without gaps, pointer words
// holding offsets from the message's start (0 for null). A string's block is length + 1 bytes, the last one NUL.
#pragma once

#include <vdl/endian-table.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>

namespace host {

// A growing run of bytes, not initialised.
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
    // Room for count more bytes at the end, which then belong to the run. Invalidates earlier pointers when it grows.
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

// A table compiled for walking: which words are pointers and what they lead to, which scalars have a byte order.
class Plan;

// The plan of a table; compiled at first use and kept for the life of the process. From any thread. Throws
// std::invalid_argument, saying what and where, for a table that is not sound: an entry outside the record, overlapping
// or unordered entries, an unknown kind, a null nested table, nesting deeper than 16, an element of size 0, no
// terminator within 4096 entries.
const Plan& planOf(const vdl::EndianTable& table);

// Appends the message whose top-level form is at payload to out. Throws std::invalid_argument for a sequence or list
// with a count and a null array, or a string with a length and a null pointer, std::length_error beyond limit bytes,
// std::bad_alloc; out is then as it was.
void marshal(const Plan& plan, const void* payload, Bytes& out, std::size_t limit);

// Validates the message of size bytes at data whole, corrects its byte order if swap says that its maker's differs, and
// turns its offsets into flat pointers, in place; data must lie in flat memory. Returns null, or a text that says what
// was wrong and where, valid until the thread's next call; the bytes are then unusable. Work is linear in size, memory
// constant. Never throws.
// A string with a length and a null pointer is accepted; a sequence or list with a count and a null array is not.
const char* unmarshal(const Plan& plan, char* data, std::size_t size, bool swap) noexcept;

// A number that is equal for tables that describe the same layout, on every machine, and hardly otherwise. Throws as
// planOf.
std::uint64_t fingerprint(const vdl::EndianTable& table);

// What the flat heap holds now.
struct FlatHeapUsage {
    std::uint64_t blocks; // handed out and not given back
    std::uint64_t bytes;  // in those blocks, as asked for (more where they come from malloc)
    std::uint64_t limit;  // size of the region; 0 where flat blocks come from malloc
};
FlatHeapUsage flatHeapUsage();

} // namespace host
