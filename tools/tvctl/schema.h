// tvctl schema: the layout of messages and records on the wire.
#pragma once

#include "options.h"

namespace tvctl {

// Prints the schema; needs no receiver. Returns the exit code.
int runSchema(const Options& options, const std::vector<std::string>& arguments);

} // namespace tvctl
