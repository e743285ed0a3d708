// tvctl schema: what messages and records look like on the wire.
#pragma once

#include "options.h"

namespace tvctl {

// Prints the schema; needs no receiver. Returns the exit code.
int runSchema(const Options& options, const std::vector<std::string>& arguments);

} // namespace tvctl
