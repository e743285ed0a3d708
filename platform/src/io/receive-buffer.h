// The bytes that came from one peer and are not handled yet, in flat memory, so that messages are unmarshalled in
// place.
#pragma once

#include <vdl/flat.h>

#include <cstddef>

namespace host::io {

class ReceiveBuffer {
public:
    ReceiveBuffer(); // throws std::bad_alloc
    ~ReceiveBuffer() { vdlFlatFree(data_); }
    ReceiveBuffer(const ReceiveBuffer&) = delete;
    ReceiveBuffer& operator=(const ReceiveBuffer&) = delete;

    char* data() { return data_; }
    std::size_t size() const { return size_; }

    // Doubles a full buffer, up to the largest frame: what a peer claims takes no memory, only what it has sent. Throws
    // std::bad_alloc; the buffer is then as it was.
    void makeRoom();
    // Where the next bytes go.
    char* room() { return data_ + size_; }
    std::size_t roomSize() const { return capacity_ - size_; }
    void added(std::size_t count) { size_ += count; }

    // Removes count bytes at the front; a large buffer that is empty then is given back, if there is memory for a small
    // one.
    void consume(std::size_t count) noexcept;

private:
    void giveBack() noexcept;
    void resize(std::size_t capacity);
    char* data_;
    std::size_t size_ = 0;
    std::size_t capacity_;
};

} // namespace host::io
