// tvctl doctor: examines what a receiver started here would use, and what runs.
#pragma once

#include "options.h"

namespace tvctl {

// Prints the findings, and who may connect where; changes nothing. Returns the exit code: exitFailed when something is
// wrong.
int runDoctor(const Options& options, const std::vector<std::string>& arguments);

} // namespace tvctl
