#include "merged-events.h"

#include <utility>

namespace recording {
namespace {

// The clock may have been set between two events of one run; its dates order only different runs.
bool isEarlier(const Event& a, const Event& b) {
    if (a.origin->boot == b.origin->boot) return a.recorded.time < b.recorded.time;
    return a.recorded.date < b.recorded.date;
}

} // namespace

bool MergedEvents::next(Event& event, const std::optional<Moment>& until) {
    fill();
    Source* earliest = nullptr;
    for (Source& source : sources_) {
        if (!source.first) continue;
        const Event& first = *source.first;
        if (until && first.origin->boot == until->boot && first.recorded.time > until->time) continue;
        if (!earliest || isEarlier(first, *earliest->first)) earliest = &source;
    }
    if (!earliest) return false;
    event = std::move(*earliest->first);
    earliest->first.reset();
    return true;
}

void MergedEvents::fill() {
    std::erase_if(sources_, [](Source& source) {
        if (source.first) return false;
        Event event;
        // Asked first: what a source that is over returns now is its last.
        const bool isOver = source.events->isOver();
        if (source.events->next(event)) source.first = std::move(event);
        return !source.first && isOver;
    });
}

} // namespace recording
