// The run log's own debug lines.
#pragma once

#include <vdl/debug.h>

#include <string>

namespace lrt {

inline constexpr std::uint32_t runLogModule = 0x0204;

// They are rare, so their text may be put together before anybody asks for it.
inline void debugLine(std::uint32_t severity, const std::string& text) {
    vdlDebugChunk chunk;
    if (vdlDebugCheckLevelGetFrameAndChunk(runLogModule << 16 | severity, chunk))
        vdlDebugOutput0(chunk, "%s", text.c_str());
}

} // namespace lrt
