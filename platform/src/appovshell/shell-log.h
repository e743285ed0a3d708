// Debug output of the shell.
#pragma once

#include "debug/line-limit.h"

#include <vdl/debug.h>

#include <string>

namespace appovshell {

inline constexpr std::uint32_t shellModule = 0x0205;

constexpr std::uint32_t wordOf(std::uint32_t severity) { return shellModule * 65536 + severity; }

inline void log(std::uint32_t severity, const std::string& text) {
    vdlDebugChunk chunk;
    if (vdlDebugCheckLevelGetFrameAndChunk(wordOf(severity), chunk)) vdlDebugOutput0(chunk, "%s\n", text.c_str());
}

} // namespace appovshell
