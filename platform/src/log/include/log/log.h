// The platform's access to the debug output, and its modules.
#pragma once

#include <vdl/debug.h>

#include <cstdint>

namespace host {

// The platform's modules. Peers can cause their lines, so these are also limited at progress level.
enum class Module : std::uint32_t { frame = 0x0201, io = 0x0202, vdl = 0x0203, runlog = 0x0204, shell = 0x0205 };
inline constexpr std::uint32_t firstPlatformModule = 0x0200, lastPlatformModule = 0x02FF;

constexpr std::uint32_t levelWordOf(Module module, std::uint32_t severity) {
    return static_cast<std::uint32_t>(module) << 16 | severity;
}

inline void nameModule(Module module, const char* name) {
    vdlDebugNameModule(static_cast<std::uint32_t>(module), name);
}

} // namespace host

// Writes a printf-style line. Evaluates the arguments only if the line is enabled.
#define HOST_LOG(module, severity, ...)                                                                          \
    do {                                                                                                         \
        vdlDebugChunk hostLogChunk;                                                                              \
        if (vdlDebugCheckLevelGetFrameAndChunk(host::levelWordOf(host::Module::module, severity), hostLogChunk)) \
            vdlDebugOutput0(hostLogChunk, __VA_ARGS__);                                                          \
    } while (false)
