// The bytes received from one peer and not handled yet, in flat memory, so that messages are unmarshalled in place.
#pragma once

#include "outbox.h"

#include <host/message-queue.h>
#include <vdl/flat.h>

#include <cstddef>
#include <string>

namespace host::io {

class ReceiveBuffer {
public:
    // The initial size. With its header, the block is exactly one of the heap's size classes; one byte more would take
    // twice the space.
    static constexpr std::size_t firstBytes = 64 * 1024 - 64;
    static constexpr std::size_t largestBytes = frameHeaderBytes + maximumMessageBytes;

    // The capacity after this one. Avoids a last step of a few bytes, which would need two blocks of the largest size
    // at once.
    static constexpr std::size_t nextCapacity(std::size_t capacity) {
        return 2 * capacity + firstBytes >= largestBytes ? largestBytes : 2 * capacity;
    }
    // The most that the largest frame takes: while the buffer grows for the last time, both blocks exist.
    static constexpr std::size_t mostTaken() {
        std::size_t capacity = firstBytes;
        while (nextCapacity(capacity) < largestBytes) capacity = nextCapacity(capacity);
        return capacity + largestBytes;
    }

    // The memory beyond firstBytes is charged to the peer in the process's ReceiveBudget. Throws std::bad_alloc.
    explicit ReceiveBuffer(std::string peer);
    ~ReceiveBuffer();
    ReceiveBuffer(const ReceiveBuffer&) = delete;
    ReceiveBuffer& operator=(const ReceiveBuffer&) = delete;

    char* data() { return data_ + begin_; }
    std::size_t size() const { return end_ - begin_; }
    // Removes count bytes at the front.
    void consume(std::size_t count) { begin_ += count; }

    // Call it before receiving more. Moves the bytes to the front of the block, and doubles a full buffer, up to the
    // largest frame: memory is taken for bytes that the peer has sent, not for those it announces. Releases a large
    // buffer, if there is memory for a small one, once a small one is enough for the frame that has begun, whose size
    // is frame. Throws std::bad_alloc, or std::runtime_error when the budget is used up; the content is then unchanged.
    void makeRoom(std::size_t frame);
    // The free space for the next bytes.
    char* room() { return data_ + end_; }
    std::size_t roomSize() const { return capacity_ - end_; }
    void added(std::size_t count) { end_ += count; }

private:
    void compact() noexcept;
    void shrink() noexcept;
    void resize(std::size_t capacity);

    const std::string peer_;
    char* data_;
    std::size_t begin_ = 0, end_ = 0;
    std::size_t capacity_ = firstBytes;
};

} // namespace host::io
