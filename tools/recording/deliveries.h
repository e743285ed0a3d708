// Joins the two events of a message, that of its sender and that of its receiver, into one.
#pragma once

#include "event.h"
#include "merged-events.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <unordered_map>
#include <utility>
#include <vector>

namespace recording {

struct Receipt {
    std::shared_ptr<const Origin> receiver;
    std::int64_t latency = 0; // nanoseconds
};

// An event as it is shown, with what is known of the message's way.
struct Shown {
    Event event;
    std::vector<Receipt> receipts;       // of a sent message
    std::optional<std::int64_t> latency; // of a message that arrived after its sending had been shown
};

// Events go in in the order of their times, and come out in that order. A sent message waits for its receivers, for
// `patience` at most; all later events wait with it.
class Deliveries {
public:
    static constexpr std::int64_t patience = 200'000'000;  // nanoseconds
    static constexpr std::int64_t memory = 10'000'000'000; // how long a message may be on its way
    static constexpr std::size_t mostWaiting = 4096, mostSent = 65536;
    static constexpr std::size_t mostEqual = 256; // messages on their way that are equal

    void add(Event event);
    // Time has passed without an event.
    void advance(const Moment& now);
    // The next event to show, unless it may still be completed.
    std::optional<Shown> take();
    // No further events come: nothing waits any more.
    void end() { hasEnded_ = true; }

private:
    struct Sent {
        std::uint64_t content; // its hash
        std::shared_ptr<const Origin> sender;
        std::int64_t time;
        bool toAll;
        std::vector<std::pair<const Origin*, std::uint64_t>> receivers; // and their connections
        std::uint64_t shownAs;                                          // number of its event
    };

    void send(const Event& event);
    void forgetOldest();
    Sent* takeSendingOf(const Event& received, std::uint64_t content);
    void receive(Event event, std::uint64_t content);
    bool mayBeCompleted(const Event& event) const;

    std::deque<Shown> waiting_;
    std::uint64_t firstWaiting_ = 0; // number of the first of them
    std::deque<Sent> sent_;
    std::uint64_t firstSent_ = 0;                                           // number of the first of them
    std::unordered_map<std::uint64_t, std::deque<std::uint64_t>> underWay_; // numbers of those sent, by content
    Moment now_;
    bool hasEnded_ = false;
};

} // namespace recording
