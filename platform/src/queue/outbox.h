// Messages on their way to one peer, as the frames that go over the stream. Callers see to mutual exclusion.
//
// A frame is a header of 32 bytes in the sender's byte order -- size of the body, instance, interface code, message id
// (u32 each), flag (u8), 3 zero bytes, the sender's ids (u32 each), a zero word -- and the body, a marshalled message.
#pragma once

#include <frame/message.h>
#include <host/marshaller.h>

#include <chrono>
#include <cstddef>
#include <utility>
#include <vector>

namespace host::io {

inline constexpr std::size_t frameHeaderBytes = 32;

// A message as OmqIOModule::asyncSend was given it.
struct Outgoing {
    const frame::MsgIds& ids;
    const frame::MsgMeta& meta;
    const Plan& plan;
    const void* payload;
    // For a message that goes into several outboxes: the first one that takes it marshals it into here, where it is
    // empty, and the others copy that.
    Bytes* frame = nullptr;
};

// Whoever adds messages bounds them: Channel::put by queue.messages and queue.bytes.
class Outbox {
public:
    using Time = std::chrono::steady_clock::time_point;

    explicit Outbox(std::size_t firstCapacity);

    // Adds a message at the end. Throws as marshal does; the outbox is then as it was.
    void add(const Outgoing& message, Time deadline);
    void retractLast() noexcept; // with the memory that it took

    bool empty() const { return first_ == waiting_.size(); }
    std::size_t messages() const { return waiting_.size() - first_; }

    // Counts a refusal for want of room; how many there have been with this one since the last takeRefusals.
    std::size_t addRefusal() { return ++refusals_; }
    std::size_t takeRefusals() { return std::exchange(refusals_, 0); }

    // The bytes that the stream has not taken yet.
    const char* data() const { return frames_.data() + head_; }
    std::size_t bytes() const { return frames_.size() - head_; }
    // The stream took count bytes. Returns how many messages are out whole by that.
    std::size_t took(std::size_t count);

    // These return how many messages they gave up.
    std::size_t dropCutShort(); // the one that the stream took in part
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
    void tidy();

    Bytes frames_;
    std::size_t head_ = 0;  // where the bytes that the stream has not taken begin
    std::size_t taken_ = 0; // of the first waiting message
    std::vector<Waiting> waiting_;
    std::size_t first_ = 0; // of waiting_
    std::size_t refusals_ = 0;
};

} // namespace host::io
