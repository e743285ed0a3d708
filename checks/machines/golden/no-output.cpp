// Replaces the setup of the platform: log lines go to stderr without formatting, as the real output needs further
// libraries, and the flat heap has its default size.
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
