#include "outbox.h"

#include "byte-order.h"

#include <host/message-queue.h>

#include <algorithm>
#include <exception>

namespace host::io {
namespace {
// A buffer that has grown beyond this is released after the burst.
constexpr std::size_t largestKeptBytes = 1024 * 1024;

// Appends the message as a frame. Throws like marshal; the bytes are then unchanged.
void appendFrame(const Outgoing& message, Bytes& out) {
    const std::size_t start = out.size();
    try {
        out.append(frameHeaderBytes);
        marshal(message.plan, message.payload, out, maximumMessageBytes);
    } catch (...) {
        out.truncate(start);
        throw;
    }
    char* header = out.data() + start;
    store(header, static_cast<std::uint32_t>(out.size() - start - frameHeaderBytes));
    store(header + 4, message.meta.instance);
    store(header + 8, message.meta.interfaceCode);
    store(header + 12, message.meta.messageId);
    store(header + 16, std::uint32_t{0});
    store(header + 16, message.meta.flag);
    store(header + 20, message.ids.sender);
    store(header + 24, message.ids.sequence);
    store(header + 28, std::uint32_t{0});
}

} // namespace

Outbox::Outbox(std::size_t firstCapacity) { frames_.reserve(std::min(firstCapacity, largestKeptBytes)); }

void Outbox::add(const Outgoing& message, Time deadline) {
    const std::size_t before = frames_.size();
    waiting_.push_back({0, deadline});
    try {
        if (!message.frame) {
            appendFrame(message, frames_);
        } else {
            if (message.frame->size() == 0) appendFrame(message, *message.frame);
            std::copy_n(message.frame->data(), message.frame->size(), frames_.append(message.frame->size()));
        }
    } catch (...) {
        waiting_.pop_back();
        throw;
    }
    waiting_.back().bytes = frames_.size() - before;
}

void Outbox::retractLast() noexcept {
    frames_.truncate(frames_.size() - waiting_.back().bytes);
    waiting_.pop_back();
    if (frames_.capacity() <= 2 * largestKeptBytes || frames_.size() > largestKeptBytes) return;
    try {
        Bytes smaller;
        std::copy_n(frames_.data(), frames_.size(), smaller.append(frames_.size()));
        frames_ = std::move(smaller);
    } catch (const std::exception&) { // out of memory: it is released once the outbox is empty
    }
}

std::size_t Outbox::markSent(std::size_t count) {
    head_ += count;
    taken_ += count;
    const std::size_t before = first_;
    while (first_ < waiting_.size() && taken_ >= waiting_[first_].bytes) taken_ -= waiting_[first_++].bytes;
    const std::size_t whole = first_ - before;
    compact();
    return whole;
}

std::size_t Outbox::dropPartlySent() {
    if (taken_ == 0) return 0;
    discard(1);
    compact();
    return 1;
}

std::size_t Outbox::dropExpired(Time now) {
    const std::size_t before = first_;
    while (!empty() && firstDeadline() <= now) discard(1);
    const std::size_t dropped = first_ - before;
    compact();
    return dropped;
}

std::size_t Outbox::dropAll() {
    const std::size_t dropped = messages();
    discard(dropped);
    compact();
    return dropped;
}

void Outbox::setDeadlines(Time deadline) {
    for (std::size_t i = first_; i < waiting_.size(); ++i) waiting_[i].deadline = deadline;
}

void Outbox::discard(std::size_t count) {
    for (; count > 0; --count) {
        head_ += waiting_[first_++].bytes - taken_;
        taken_ = 0;
    }
}

// Prevents the space before the first unsent byte, and before the first queued entry, from growing without limit.
void Outbox::compact() {
    if (empty()) {
        waiting_.clear();
        first_ = head_ = 0;
        frames_.truncate(0);
        if (frames_.capacity() > 2 * largestKeptBytes) frames_ = Bytes();
        return;
    }
    if (head_ > frames_.size() / 2) {
        const std::size_t rest = bytes();
        std::copy_n(data(), rest, frames_.data());
        frames_.truncate(rest);
        head_ = 0;
    }
    if (first_ > waiting_.size() / 2) {
        waiting_.erase(waiting_.begin(), waiting_.begin() + static_cast<std::ptrdiff_t>(first_));
        first_ = 0;
    }
}

} // namespace host::io
