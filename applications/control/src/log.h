// Log lines of the control application.
#pragma once

#include <vdl/debug.h>

#include <cstdint>

namespace control {

inline constexpr std::uint32_t logModule = 0x0301;

} // namespace control

#define CONTROL_LOG(severity, ...)                                                                   \
    do {                                                                                             \
        vdlDebugChunk controlChunk;                                                                  \
        if (vdlDebugCheckLevelGetFrameAndChunk(control::logModule << 16 | (severity), controlChunk)) \
            vdlDebugOutput0(controlChunk, __VA_ARGS__);                                              \
    } while (false)
