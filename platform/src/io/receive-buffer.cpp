#include "io/receive-buffer.h"

#include "io/outbox.h"

#include <host/message-queue.h>

#include <algorithm>
#include <cstring>
#include <new>

namespace host::io {
namespace {
constexpr std::size_t firstBytes = 64 * 1024;
constexpr std::size_t largestBytes = frameHeaderBytes + maximumMessageBytes;
} // namespace

ReceiveBuffer::ReceiveBuffer() : data_(static_cast<char*>(vdlFlatAlloc(firstBytes))), capacity_(firstBytes) {}

void ReceiveBuffer::makeRoom() {
    if (size_ == capacity_) resize(std::min(2 * capacity_, largestBytes));
}

void ReceiveBuffer::consume(std::size_t count) noexcept {
    size_ -= count;
    if (size_ == 0 && capacity_ > firstBytes) return giveBack();
    if (count > 0) std::memmove(data_, data_ + count, size_);
}

void ReceiveBuffer::giveBack() noexcept {
    try {
        resize(firstBytes);
    } catch (const std::bad_alloc&) { // the large one serves as well
    }
}

void ReceiveBuffer::resize(std::size_t capacity) {
    char* larger = static_cast<char*>(vdlFlatAlloc(capacity));
    std::memcpy(larger, data_, size_);
    vdlFlatFree(data_);
    data_ = larger;
    capacity_ = capacity;
}

} // namespace host::io
