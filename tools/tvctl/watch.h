// tvctl watch: prints a receiver's notifications to its clients.
#pragma once

#include "options.h"

#include <iosfwd>
#include <set>
#include <string>
#include <vector>

namespace tvctl {

struct WatchOptions {
    Options receiver;
    std::set<std::string> messages;   // which notifications to print; empty: all of them
    std::optional<std::size_t> count; // how many to print; unset: no limit
};

// Prints the receiver's new notifications, one per line, until count is reached, the receiver is gone, or the timeout
// (if given) has passed. Returns the exit code.
int watch(const WatchOptions& options, std::ostream& out, std::ostream& errors);

// The verb.
int runWatch(const Options& options, const std::vector<std::string>& arguments);

} // namespace tvctl
