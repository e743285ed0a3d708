// Log lines of the control application.
#pragma once

#include <vdl/debug.h>

#include <cstdint>

namespace control {

inline constexpr std::uint32_t controlLog = 0x0301; // its module

// Logs a line of that severity; format and arguments as for printf.
#define CONTROL_LOG(severity, ...)                                                                       \
    do {                                                                                                 \
        vdlDebugChunk controlChunk;                                                                      \
        if (vdlDebugCheckLevelGetFrameAndChunk(control::controlLog * 65536U + (severity), controlChunk)) \
            vdlDebugOutput0(controlChunk, __VA_ARGS__);                                                  \
    } while (false)

} // namespace control
