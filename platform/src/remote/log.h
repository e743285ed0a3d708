// Lines about other hosts. Who writes limited ones calls LineLimit::tellHeldBack now and then.
#pragma once

#include "debug/line-limit.h"
#include "io/log.h"

// A line that a peer can cause as often as it likes.
#define REMOTE_LOG_LIMITED(severity, format, ...) \
    LIMITED_DEBUG_LINE(host::io::debugModule << 16 | (severity), (void)0, format __VA_OPT__(, ) __VA_ARGS__)
