#include <tvservice-adapter/service/log.h>
#include <tvservice-adapter/service/terminal-table.h>

#include <utility>

namespace services {

bool TerminalTable::show(const Terminal& terminal, Shown shown, Evictions* evictions) {
    const thread_safety::LockGuard lock(mutex_);
    const std::size_t bytes = shown.textBytes();
    if (claimedKey_.put(terminal, std::move(shown), evictions)) return true;
    SERVICE_LOG(vdlDebugWarning,
                "a play on terminal %d:%d is rejected: no room for it and %zu bytes of text beside %zu terminals\n",
                terminal.type, terminal.id, bytes, claimedKey_.entries().size());
    return false;
}

void TerminalTable::stop(const Terminal& terminal) {
    const thread_safety::LockGuard lock(mutex_);
    claimedKey_.erase(terminal);
}

std::uint64_t TerminalTable::numberOf(const Terminal& terminal) const {
    const thread_safety::LockGuard lock(mutex_);
    const auto held = claimedKey_.entries().find(terminal);
    return held == claimedKey_.entries().end() ? 0 : held->second.number;
}

std::optional<Terminal> TerminalTable::find(std::uint64_t number) const {
    for (const auto& [terminal, held] : claimedKey_.entries())
        if (held.number == number) return terminal;
    return std::nullopt;
}

std::optional<Terminal> TerminalTable::terminalOf(std::uint64_t number) const {
    const thread_safety::LockGuard lock(mutex_);
    return find(number);
}

std::optional<Terminal> TerminalTable::stop(std::uint64_t number) {
    const thread_safety::LockGuard lock(mutex_);
    const auto terminal = find(number);
    if (terminal) claimedKey_.erase(*terminal);
    return terminal;
}

bool TerminalTable::swap(const Terminal& a, const Terminal& b, std::uint64_t client) {
    const thread_safety::LockGuard lock(mutex_);
    return claimedKey_.swap(a, b, client);
}

std::vector<TerminalTable::Entry> TerminalTable::entries() const {
    const thread_safety::LockGuard lock(mutex_);
    std::vector<Entry> entries;
    entries.reserve(claimedKey_.entries().size());
    for (const auto& [terminal, held] : claimedKey_.entries()) entries.push_back({terminal, held.entry});
    return entries;
}

TableCount TerminalTable::count() const {
    const thread_safety::LockGuard lock(mutex_);
    return claimedKey_.count();
}

void TerminalTable::fail(Failure failure) {
    if (failure.request.size() > mostReasonBytes) return;
    if (failure.reason.size() > mostReasonBytes) failure.reason.resize(mostReasonBytes);
    const thread_safety::LockGuard lock(mutex_);
    failures_.push_back(std::move(failure));
    if (failures_.size() > mostFailures) failures_.pop_front();
}

std::vector<TerminalTable::Failure> TerminalTable::failuresOf(const std::string& request) const {
    const thread_safety::LockGuard lock(mutex_);
    std::vector<Failure> found;
    for (const Failure& failure : failures_)
        if (failure.request == request) found.push_back(failure);
    return found;
}

} // namespace services
