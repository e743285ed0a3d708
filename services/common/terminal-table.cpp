#include "common/terminal-table.h"

#include "common/log.h"
#include "common/swap-keys.h"

#include <utility>

namespace services {

bool TerminalTable::show(const Terminal& terminal, Shown shown) {
    const std::lock_guard lock(mutex_);
    if (!hasRoom(shown_, terminal, shown.client, shown.textBytes())) {
        ++refused_;
        SERVICE_LOG(vdlDebugWarning,
                    "terminal %d:%d shows nothing new: no room for it and %zu bytes of text beside %zu terminals\n",
                    terminal.type, terminal.id, shown.textBytes(), shown_.size());
        return false;
    }
    shown_.insert_or_assign(terminal, std::move(shown));
    return true;
}

void TerminalTable::stop(const Terminal& terminal) {
    const std::lock_guard lock(mutex_);
    shown_.erase(terminal);
}

bool TerminalTable::swap(const Terminal& a, const Terminal& b) {
    const std::lock_guard lock(mutex_);
    swapKeys(shown_, a, b);
    return shown_.contains(a) || shown_.contains(b);
}

std::vector<TerminalTable::Entry> TerminalTable::entries() const {
    const std::lock_guard lock(mutex_);
    std::vector<Entry> entries;
    entries.reserve(shown_.size());
    for (const auto& [terminal, shown] : shown_) entries.push_back({terminal, shown});
    return entries;
}

TableCount TerminalTable::count() const {
    const std::lock_guard lock(mutex_);
    return {"terminals", shown_.size(), bounds::terminals, refused_};
}

} // namespace services
