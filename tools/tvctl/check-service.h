// tvctl check-service: puts a running service through the rules that a receiver relies on.
#pragma once

#include "options.h"

namespace tvctl {

// Prints what holds and what does not. Returns the exit code: exitDone only when all rules hold, exitNotAvailable when
// the service does not run on this host.
int runCheckService(const Options& options, const std::vector<std::string>& arguments);

} // namespace tvctl
