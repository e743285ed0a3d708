// Log lines of the services.
#pragma once

#include <vdl/debug.h>

#include <cstdint>

namespace services {

inline constexpr std::uint32_t logModule = 0x0206;

} // namespace services

#define SERVICE_LOG(severity, format, ...)                                                               \
    do {                                                                                                 \
        vdlDebugChunk serviceChunk;                                                                      \
        if (vdlDebugCheckLevelGetFrameAndChunk(services::logModule * 65536U + (severity), serviceChunk)) \
            vdlDebugOutput0(serviceChunk, format __VA_OPT__(, ) __VA_ARGS__);                            \
    } while (false)
