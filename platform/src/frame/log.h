// Debug output of the framework.
#pragma once

#include <vdl/debug.h>

namespace frame {

inline constexpr std::uint32_t logModule = 0x0201;

} // namespace frame

// Prints a printf-style line of a severity, whose arguments are evaluated only when it is wanted.
#define FRAME_LOG(severity, ...)                                                                      \
    do {                                                                                              \
        vdlDebugChunk frameLogChunk;                                                                  \
        if (vdlDebugCheckLevelGetFrameAndChunk(::frame::logModule << 16 | (severity), frameLogChunk)) \
            vdlDebugOutput0(frameLogChunk, __VA_ARGS__);                                              \
    } while (false)
