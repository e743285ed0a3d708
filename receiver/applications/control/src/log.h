// Lines of the control application in the log.
#pragma once

#include <vdl/debug.h>

#include <cstdint>

namespace control {

inline constexpr std::uint32_t controlLog = 0x0301; // its module

// A line of that severity: format and arguments as printf takes them.
#define CONTROL_LOG(severity, ...)                                                                       \
    do {                                                                                                 \
        vdlDebugChunk controlChunk;                                                                      \
        if (vdlDebugCheckLevelGetFrameAndChunk(control::controlLog * 65536U + (severity), controlChunk)) \
            vdlDebugOutput0(controlChunk, __VA_ARGS__);                                                  \
    } while (false)

} // namespace control
