// tvctl shell: runs commands line by line.
#pragma once

#include "options.h"

namespace tvctl {

// Runs the lines of standard input until its end or "exit". A terminal gets editing, history and completion. Returns
// the last command's exit code.
int runShell(const Options& options, const std::vector<std::string>& arguments);

} // namespace tvctl
