// Debug output of the IO module.
#pragma once

#include "debug/line-limit.h"

#include <vdl/debug.h>

#include <cstdint>
#include <exception>
#include <new>

namespace host::io {
inline constexpr std::uint32_t debugModule = 0x0202;

// What an operator is told of it; takes no memory.
inline const char* textOf(const std::exception& error) noexcept {
    return dynamic_cast<const std::bad_alloc*>(&error) ? "out of memory" : error.what();
}

} // namespace host::io

// One line; the arguments are evaluated only when the line is wanted.
#define IO_LOG(severity, ...)                                                                         \
    do {                                                                                              \
        vdlDebugChunk ioLogChunk;                                                                     \
        if (vdlDebugCheckLevelGetFrameAndChunk(host::io::debugModule << 16 | (severity), ioLogChunk)) \
            vdlDebugOutput0(ioLogChunk, __VA_ARGS__);                                                 \
    } while (false)

// The same for a line that a peer can cause as often as it likes.
#define IO_LOG_LIMITED(door, severity, format, ...) \
    LIMITED_DEBUG_LINE(host::io::debugModule << 16 | (severity), (door).tellLater(), format __VA_OPT__(, ) __VA_ARGS__)
