// tvctl keygen: the keys by which this machine is known to others.
#pragma once

#include "options.h"

namespace tvctl {

// Makes a pair of keys in a new file, or reads one, and prints its public key; needs no receiver. Returns the exit
// code.
int runKeygen(const Options& options, const std::vector<std::string>& arguments);

} // namespace tvctl
