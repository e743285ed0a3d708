// Debug output of the IO module.
#pragma once

#include <vdl/debug.h>

#include <cstdint>

namespace host::io {
inline constexpr std::uint32_t debugModule = 0x0202;
}

// One line; the arguments are evaluated only when the line is wanted.
#define IO_LOG(severity, ...)                                                                         \
    do {                                                                                              \
        vdlDebugChunk ioLogChunk;                                                                     \
        if (vdlDebugCheckLevelGetFrameAndChunk(host::io::debugModule << 16 | (severity), ioLogChunk)) \
            vdlDebugOutput0(ioLogChunk, __VA_ARGS__);                                                 \
    } while (false)
