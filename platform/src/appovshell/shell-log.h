// Debug output of the shell.
#pragma once

#include <vdl/debug.h>

#include <string>

namespace appovshell {

inline constexpr std::uint32_t shellModule = 0x0205;

inline void log(std::uint32_t severity, const std::string& text) {
    vdlDebugChunk chunk;
    if (vdlDebugCheckLevelGetFrameAndChunk(shellModule * 65536 + severity, chunk))
        vdlDebugOutput0(chunk, "%s\n", text.c_str());
}

} // namespace appovshell
