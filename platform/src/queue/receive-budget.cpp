#include "receive-budget.h"

#include "receive-buffer.h"

#include <host/marshaller.h>

#include <cstdint>
#include <stdexcept>

namespace host::io {
namespace {

constexpr std::size_t mebibyte = std::size_t{1} << 20;
// Where flat blocks come from malloc there is no region to take a fraction of: use that of a heap of the default size.
constexpr std::uint64_t heapWithoutRegion = 256 * mebibyte;

std::size_t totalOf(std::uint64_t heap) {
    return static_cast<std::size_t>((heap > 0 ? heap : heapWithoutRegion) / 4 * 3);
}

// The limit of one peer: what the largest message needs, in whole mebibytes.
constexpr std::size_t share = (ReceiveBuffer::mostTaken() + mebibyte - 1) / mebibyte * mebibyte;

[[noreturn]] void refuse(const std::string& owner, std::size_t limit) {
    throw std::runtime_error("the unfinished messages of " + owner + " need more than their limit of " +
                             std::to_string(limit / mebibyte) + " MiB");
}

} // namespace

ReceiveBudget& ReceiveBudget::ofProcess() {
    static ReceiveBudget& budget = *new ReceiveBudget(totalOf(flatHeapUsage().limit), share);
    return budget;
}

void ReceiveBudget::take(const std::string& peer, std::size_t bytes) {
    const thread_safety::LockGuard lock(mutex_);
    if (bytes > total_ - taken_) refuse("all peers", total_);
    const auto known = takenBy_.find(peer);
    if (bytes > share_ - (known == takenBy_.end() ? 0 : known->second)) refuse(peer, share_);
    if (known == takenBy_.end())
        takenBy_.emplace(peer, bytes);
    else
        known->second += bytes;
    taken_ += bytes;
}

void ReceiveBudget::give(const std::string& peer, std::size_t bytes) noexcept {
    if (bytes == 0) return;
    const thread_safety::LockGuard lock(mutex_);
    const auto known = takenBy_.find(peer);
    known->second -= bytes;
    taken_ -= bytes;
    if (known->second == 0) takenBy_.erase(known);
}

} // namespace host::io
