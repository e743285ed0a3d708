// In place of what puts the platform together: nothing of what these tests reach is logged, as the real output needs
// libraries, and the flat heap has its usual size.
#include "codec/flat-heap-size.h"

#include <vdl/debug.h>

#include <cstdio>

void vdlDebugOutput0(const vdlDebugChunk&, const char* format, ...) noexcept { std::fputs(format, stderr); }

namespace {

const bool composed = [] {
    host::flatHeapMegabytes = [](std::string&) -> std::size_t { return 256; };
    return true;
}();

} // namespace
