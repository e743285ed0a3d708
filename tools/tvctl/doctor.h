// tvctl doctor: what a receiver that is started here would meet, and what runs.
#pragma once

#include "options.h"

namespace tvctl {

// Prints what is right, questionable and wrong, and who may come in where; changes nothing. Returns the exit code:
// exitFailed when something is wrong.
int runDoctor(const Options& options, const std::vector<std::string>& arguments);

} // namespace tvctl
