// In the place of the platform's debug output, which needs libraries: nothing of what these tests reach is logged.
#include "debug/debug-internal.h"

#include <vdl/debug.h>

#include <cstdio>

void vdlDebugOutput0(const vdlDebugChunk&, const char* format, ...) noexcept { std::fputs(format, stderr); }

namespace host::debug {

void reportLevelComplaints(const std::string& complaints) { std::fputs(complaints.c_str(), stderr); }

} // namespace host::debug
