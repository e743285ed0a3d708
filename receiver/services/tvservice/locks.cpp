#include "tvservice/locks.h"

#include <tvservice-adapter/service/log.h>

namespace services {

Locks::Outcome Locks::lock(const Terminal& terminal, std::int32_t rating, std::uint64_t client, Evictions* evictions) {
    const thread_safety::LockGuard lock(mutex_);
    if (const auto held = all().find(terminal); held != all().end() && held->second.entry.rating == rating)
        return Outcome::unchanged;
    if (locks_.put(terminal, Lock{rating, client}, evictions)) return Outcome::changed;
    SERVICE_LOG(vdlDebugWarning, "terminal %d:%d is not locked: %zu are locked already\n", terminal.type, terminal.id,
                all().size());
    return Outcome::refused;
}

Locks::Outcome Locks::unlock(const Terminal& terminal) {
    const thread_safety::LockGuard lock(mutex_);
    return locks_.erase(terminal) ? Outcome::changed : Outcome::unchanged;
}

TableCount Locks::count() const {
    const thread_safety::LockGuard lock(mutex_);
    return locks_.count();
}

} // namespace services
