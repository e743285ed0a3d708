// Keeps the log of this process off standard error, for a report that has what the log would say.
#pragma once

#include <host/log-capture.h>

namespace tvctl {

class QuietLog {
    // Of one module, whose lines nobody needs: the levels of all others stay as they are.
    const host::LogCapture capture_{{0}};
};

} // namespace tvctl
