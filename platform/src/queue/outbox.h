// The messages queued for one peer, as frames ready for the stream. Callers must ensure mutual exclusion.
//
// A frame is a header of 32 bytes in the sender's byte order -- size of the body, instance, interface code, message id
// (u32 each), flag (u8), 3 zero bytes, the sender's ids (u32 each), a zero word -- and the body, a marshalled message.
#pragma once

#include <frame/message.h>
#include <host/marshaller.h>

#include <chrono>
#include <cstddef>
#include <string_view>
#include <utility>
#include <vector>

namespace host::io {

inline constexpr std::size_t frameHeaderBytes = 32;

// A message as passed to OmqIOModule::asyncSend.
struct Outgoing {
    const frame::MsgIds& ids;
    const frame::MsgMeta& meta;
    const Plan& plan;
    const void* payload;
    // For a message that goes into several outboxes: if this is empty, the outbox marshals the message into it;
    // otherwise it copies the frame from it.
    Bytes* frame = nullptr;
};

// The size is limited by the caller: Channel::put by queue.messages and queue.bytes.
class Outbox {
public:
    using Time = std::chrono::steady_clock::time_point;

    explicit Outbox(std::size_t firstCapacity);

    // Appends a message; last is its frame, until anything changes. Throws like marshal; the outbox is then unchanged.
    void add(const Outgoing& message, Time deadline);
    std::string_view last() const {
        return {frames_.data() + frames_.size() - waiting_.back().bytes, waiting_.back().bytes};
    }
    void retractLast() noexcept; // and releases the memory that it took

    bool empty() const { return first_ == waiting_.size(); }
    std::size_t messages() const { return waiting_.size() - first_; }

    // Counts a message that was refused because the outbox was full. Returns the number since the last takeRefusals.
    std::size_t addRefusal() { return ++refusals_; }
    std::size_t takeRefusals() { return std::exchange(refusals_, 0); }

    // The bytes that the stream has not accepted yet.
    const char* data() const { return frames_.data() + head_; }
    std::size_t bytes() const { return frames_.size() - head_; }
    // The stream has accepted count bytes. Returns how many messages were completed by that.
    std::size_t markSent(std::size_t count);

    // These return how many messages they dropped.
    std::size_t dropPartlySent(); // the message that the stream has accepted in part
    std::size_t dropExpired(Time now);
    std::size_t dropAll();

    // When the first message expires; the outbox must not be empty.
    Time firstDeadline() const { return waiting_[first_].deadline; }
    void setDeadlines(Time deadline);

private:
    struct Waiting {
        std::size_t bytes;
        Time deadline;
    };
    void discard(std::size_t count);
    void compact();

    Bytes frames_;
    std::size_t head_ = 0;  // start of the bytes that the stream has not accepted
    std::size_t taken_ = 0; // bytes accepted of the first queued message
    std::vector<Waiting> waiting_;
    std::size_t first_ = 0; // index of the first queued message in waiting_
    std::size_t refusals_ = 0;
};

} // namespace host::io
