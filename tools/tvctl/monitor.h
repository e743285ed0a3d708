// tvctl monitor: prints what the processes of a receiver do, or what a recording says that they did.
#pragma once

#include "options.h"

#include <iosfwd>
#include <optional>
#include <recording/event-filter.h>
#include <recording/follow.h>
#include <string>
#include <vector>

namespace tvctl {

struct MonitorOptions {
    Options receiver;
    recording::EventFilter filter;
    bool both = false;                // show a message's sending and its arrival
    std::optional<std::size_t> count; // how many events to print; unset: no limit
};

// Prints what happens from now on, until count is reached, the timeout has passed or the surroundings end it. Returns
// the exit code.
int monitor(const MonitorOptions& options, const recording::Surroundings& surroundings, std::ostream& out,
            std::ostream& errors);
// Prints what is recorded.
int monitorRecording(const MonitorOptions& options, const std::string& file, std::ostream& out, std::ostream& errors);

// The verb.
int runMonitor(const Options& options, const std::vector<std::string>& arguments);

} // namespace tvctl
