// tvctl keygen: the key pair that identifies this machine to others.
#pragma once

#include "options.h"

namespace tvctl {

// Writes a key pair to a new file, or reads an existing one, and prints the public key; needs no receiver. Returns the
// exit code.
int runKeygen(const Options& options, const std::vector<std::string>& arguments);

} // namespace tvctl
