#include "tvservice/locks.h"

#include "common/log.h"

namespace services {

Locks::Outcome Locks::lock(const Terminal& terminal, std::int32_t rating, std::uint64_t client) {
    const std::lock_guard lock(mutex_);
    if (const auto held = locks_.find(terminal); held != locks_.end() && held->second.rating == rating)
        return Outcome::unchanged;
    if (!hasRoom(locks_, terminal, client, 0)) {
        ++refused_;
        SERVICE_LOG(vdlDebugWarning, "terminal %d:%d is not locked: %zu are locked already\n", terminal.type,
                    terminal.id, locks_.size());
        return Outcome::refused;
    }
    locks_.insert_or_assign(terminal, Lock{rating, client});
    return Outcome::changed;
}

Locks::Outcome Locks::unlock(const Terminal& terminal) {
    const std::lock_guard lock(mutex_);
    return locks_.erase(terminal) != 0 ? Outcome::changed : Outcome::unchanged;
}

TableCount Locks::count() const {
    const std::lock_guard lock(mutex_);
    return {"locks", locks_.size(), bounds::terminals, refused_};
}

} // namespace services
