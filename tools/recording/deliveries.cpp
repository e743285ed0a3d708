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
        sent_.pop_front();
    if (isReceived(event)) {
        const std::uint64_t content = contentOf(event.recorded);
        return receive(std::move(event), content);
    }
    if (isSent(event))
        sent_.push_back({contentOf(event.recorded),
                         event.origin,
                         event.recorded.time,
                         event.recorded.number == 0,
                         {},
                         firstWaiting_ + waiting_.size()});
    waiting_.push_back({std::move(event), {}, {}});
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
    Sent* const sent = sendingOf(event, content);
    if (!sent) return void(waiting_.push_back({std::move(event), {}, {}}));
    sent->receivers.emplace_back(event.origin.get(), event.recorded.number);
    const std::int64_t latency = event.recorded.time - sent->time;
    if (sent->shownAs >= firstWaiting_)
        waiting_[sent->shownAs - firstWaiting_].receipts.push_back({event.origin, latency});
    else
        waiting_.push_back({std::move(event), {}, latency});
}

// The oldest one that this receiver has not received: messages do not overtake each other.
Deliveries::Sent* Deliveries::sendingOf(const Event& received, std::uint64_t content) {
    const std::pair receiver{received.origin.get(), received.recorded.number};
    const auto found = std::find_if(sent_.begin(), sent_.end(), [&](const Sent& sent) {
        if (sent.content != content || sent.sender == received.origin || sent.time > received.recorded.time)
            return false;
        if (!sent.toAll) return sent.receivers.empty();
        return std::find(sent.receivers.begin(), sent.receivers.end(), receiver) == sent.receivers.end();
    });
    return found == sent_.end() ? nullptr : &*found;
}

} // namespace recording
