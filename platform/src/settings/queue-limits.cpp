#include "settings/number.h"

#include <host/queue-limits.h>

namespace host {
namespace {

std::size_t limit(const char* setting) { return static_cast<std::size_t>(config::numberOf(setting)); }

} // namespace

QueueLimits QueueLimits::fromConfiguration() {
    return {limit("queue.messages"), limit("queue.bytes"), std::chrono::milliseconds(limit("queue.wait_ms")),
            std::chrono::milliseconds(limit("queue.unfinished_ms"))};
}

} // namespace host
