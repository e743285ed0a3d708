#include "receive-buffer.h"

#include "receive-budget.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <utility>

namespace host::io {
namespace {

// The peer's budget is charged for everything beyond the first block.
constexpr std::size_t priceOf(std::size_t capacity) { return capacity > ReceiveBuffer::firstBytes ? capacity : 0; }

} // namespace

ReceiveBuffer::ReceiveBuffer(std::string peer)
    : peer_(std::move(peer)), data_(static_cast<char*>(vdlFlatAlloc(firstBytes))) {}

ReceiveBuffer::~ReceiveBuffer() {
    vdlFlatFree(data_);
    if (capacity_ > firstBytes) ReceiveBudget::ofProcess().give(peer_, priceOf(capacity_));
}

void ReceiveBuffer::makeRoom(std::size_t frame) {
    compact();
    if (capacity_ > firstBytes && std::max(frame, size()) <= firstBytes) shrink();
    if (end_ == capacity_) resize(nextCapacity(capacity_));
}

void ReceiveBuffer::compact() noexcept {
    if (begin_ == 0) return;
    std::memmove(data_, data_ + begin_, size());
    end_ -= begin_;
    begin_ = 0;
}

void ReceiveBuffer::shrink() noexcept {
    try {
        resize(firstBytes);
    } catch (const std::exception&) { // keep the large one
    }
}

void ReceiveBuffer::resize(std::size_t capacity) {
    if (priceOf(capacity) > 0) ReceiveBudget::ofProcess().take(peer_, priceOf(capacity));
    char* other;
    try {
        other = static_cast<char*>(vdlFlatAlloc(capacity));
    } catch (...) {
        ReceiveBudget::ofProcess().give(peer_, priceOf(capacity));
        throw;
    }
    const std::size_t bytes = size();
    std::memcpy(other, data(), bytes);
    vdlFlatFree(data_);
    if (priceOf(capacity_) > 0) ReceiveBudget::ofProcess().give(peer_, priceOf(capacity_));
    data_ = other;
    begin_ = 0;
    end_ = bytes;
    capacity_ = capacity;
}

} // namespace host::io
