// tvctl shell: commands line by line.
#pragma once

#include "session.h"

namespace tvctl {

// Runs the lines of standard input until its end or "exit"; at a terminal with editing, history and completion.
// Returns the last command's exit code.
int runInteractive(Session& session, const Options& options);

} // namespace tvctl
