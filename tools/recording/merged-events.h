// The events of several sources in the order of their times.
#pragma once

#include "event.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace recording {

// A point in time on one run of a system.
struct Moment {
    std::string boot;
    std::int64_t time = 0; // nanoseconds of CLOCK_MONOTONIC
};

class MergedEvents {
public:
    void add(std::unique_ptr<EventSource> source) { sources_.push_back({std::move(source), {}}); }

    // The earliest event. Processes record at the same time: events later than `until` stay, because an earlier one of
    // another process may follow. Events of other runs of the system are not held back. Throws RecordingError.
    bool next(Event& event, const std::optional<Moment>& until = std::nullopt);

    std::size_t sources() const { return sources_.size(); }

private:
    struct Source {
        std::unique_ptr<EventSource> events;
        std::optional<Event> first;
    };
    void fill();

    std::vector<Source> sources_;
};

} // namespace recording
