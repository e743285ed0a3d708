// tvctl config: what a process that is started here is configured with.
#pragma once

#include "options.h"

namespace tvctl {

// Prints each setting, its value and where that came from; needs no receiver. Returns the exit code.
int runConfig(const Options& options, const std::vector<std::string>& arguments);

} // namespace tvctl
