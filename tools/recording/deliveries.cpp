#include "deliveries.h"

#include "sip-hash.h"

#include <algorithm>
#include <utility>

namespace recording {
namespace {

bool isSent(const Event& event) {
    return event.recorded.kind == host::EventKind::message && (event.recorded.flags & host::EventFlags::sent) != 0;
}
bool isReceived(const Event& event) { return event.recorded.kind == host::EventKind::message && !isSent(event); }

std::uint64_t contentOf(const host::RecordedEvent& message) {
    return sipHash({message.size, message.name.size()}, message.name + message.data);
}

} // namespace

void Deliveries::add(Event event) {
    now_ = {event.origin->boot, event.recorded.time};
    while (!sent_.empty() && (sent_.size() >= mostSent || sent_.front().sender->boot != now_.boot ||
                              now_.time - sent_.front().time > memory))
        forgetOldest();
    if (isReceived(event)) {
        const std::uint64_t content = contentOf(event.recorded);
        return receive(std::move(event), content);
    }
    if (isSent(event)) send(event);
    waiting_.push_back({std::move(event), {}, {}});
}

void Deliveries::send(const Event& event) {
    const std::uint64_t content = contentOf(event.recorded);
    auto& equal = underWay_[content];
    if (equal.size() == mostEqual) equal.pop_front();
    equal.push_back(firstSent_ + sent_.size());
    sent_.push_back(
        {content, event.origin, event.recorded.time, event.recorded.number == 0, {}, firstWaiting_ + waiting_.size()});
}

void Deliveries::forgetOldest() {
    const auto equal = underWay_.find(sent_.front().content);
    if (equal != underWay_.end()) {
        if (!equal->second.empty() && equal->second.front() == firstSent_) equal->second.pop_front();
        if (equal->second.empty()) underWay_.erase(equal);
    }
    sent_.pop_front();
    ++firstSent_;
}

void Deliveries::advance(const Moment& now) {
    if (now.boot != now_.boot || now.time > now_.time) now_ = now;
}

std::optional<Shown> Deliveries::take() {
    if (waiting_.empty() || (waiting_.size() < mostWaiting && mayBeCompleted(waiting_.front().event)))
        return std::nullopt;
    std::optional<Shown> first = std::move(waiting_.front());
    waiting_.pop_front();
    ++firstWaiting_;
    return first;
}

bool Deliveries::mayBeCompleted(const Event& event) const {
    if (hasEnded_ || !isSent(event) || event.origin->boot != now_.boot) return false;
    if (event.recorded.number != 0 && !waiting_.front().receipts.empty()) return false; // it had one receiver
    return now_.time - event.recorded.time <= patience;
}

void Deliveries::receive(Event event, std::uint64_t content) {
    Sent* const sent = takeSendingOf(event, content);
    if (!sent) return void(waiting_.push_back({std::move(event), {}, {}}));
    sent->receivers.emplace_back(event.origin.get(), event.recorded.number);
    const std::int64_t latency = event.recorded.time - sent->time;
    if (sent->shownAs >= firstWaiting_)
        waiting_[static_cast<std::size_t>(sent->shownAs - firstWaiting_)].receipts.push_back({event.origin, latency});
    else
        waiting_.push_back({std::move(event), {}, latency});
}

// The oldest one that this receiver has not received: messages do not overtake each other.
Deliveries::Sent* Deliveries::takeSendingOf(const Event& received, std::uint64_t content) {
    const auto equal = underWay_.find(content);
    if (equal == underWay_.end()) return nullptr;
    const std::pair receiver{received.origin.get(), received.recorded.number};
    for (auto number = equal->second.begin(); number != equal->second.end(); ++number) {
        Sent& sent = sent_[static_cast<std::size_t>(*number - firstSent_)];
        if (sent.sender == received.origin || sent.time > received.recorded.time ||
            std::ranges::find(sent.receivers, receiver) != sent.receivers.end())
            continue;
        if (!sent.toAll) equal->second.erase(number);
        return &sent;
    }
    return nullptr;
}

} // namespace recording
