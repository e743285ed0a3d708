// tvctl config: the effective settings of a process started here.
#pragma once

#include "options.h"

namespace tvctl {

// Prints each setting, its value and where it comes from; needs no receiver. Returns the exit code.
int runConfig(const Options& options, const std::vector<std::string>& arguments);

} // namespace tvctl
