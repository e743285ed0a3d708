// Every line of the log is wanted and made, as a fault while a bad message is reported is as bad as one while it is
// read, and then goes nowhere. Takes the place of the platform's output.
#include "base/escape.h"
#include "budget.h"

#include <vdl/debug.h>

#include <cstdarg>
#include <cstdio>
#include <string>

__attribute__((visibility("default"))) void vdlDebugOutput0(const vdlDebugChunk&, const char* format, ...) noexcept {
    const fuzz::Pause pause; // what a line costs is the log's
    va_list arguments;
    va_start(arguments, format);
    char text[4096];
    const int length = std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    std::string line;
    if (length > 0) host::appendEscaped(line, text, "\n    | ");
}
