// tvctl watch: follows what a receiver tells its clients.
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
    std::optional<std::size_t> count; // how many to print; without it there is no end
};

// Prints the receiver's notifications from now on, a line each, until as many came as are wanted, the receiver is gone,
// or the timeout (when given) has passed. Returns the exit code.
int watch(const WatchOptions& options, std::ostream& out, std::ostream& errors);

// The verb.
int runWatch(const Options& options, const std::vector<std::string>& arguments);

} // namespace tvctl
