// Debug output: printf-style lines, each with a level word = module number * 65536 + severity.
//
// A call site calls vdlDebugCheckLevelGetFrameAndChunk first, and vdlDebugOutput0 only if it returns true: a suppressed
// line costs a load and a compare, and its arguments are not evaluated. Levels may change at any time.
// Every function may be called from any thread, also before and after main.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

enum : std::uint32_t { // severities; a module's level is the highest severity that it prints
    vdlDebugFailure = 1000,
    vdlDebugWarning = 3000,
    vdlDebugProgress = 4000,
    vdlDebugTrace = 5000,
};

// Module numbers are below this bound.
inline constexpr std::uint32_t vdlDebugModules = 0x400;
// The level of each module by its number.
extern std::atomic<std::uint16_t> vdlDebugLevels[vdlDebugModules];

// The state of one line between check and output.
struct vdlDebugChunk {
    std::uint32_t levelWord;
};

// Whether lines of this level word are enabled now; if so, chunk is ready for vdlDebugOutput0.
inline bool vdlDebugCheckLevelGetFrameAndChunk(std::uint32_t levelWord, vdlDebugChunk& chunk) {
    if ((levelWord & 0xFFFF) > vdlDebugLevels[(levelWord >> 16) % vdlDebugModules].load(std::memory_order_relaxed))
        return false;
    chunk.levelWord = levelWord;
    return true;
}

// Prints one line. A final line feed ends the line; further ones inside continue it. Never throws. Cold: most lines are
// disabled most of the time, so the code of the call is kept out of the path that only checks.
[[gnu::format(printf, 2, 3), gnu::cold]] void vdlDebugOutput0(const vdlDebugChunk& chunk, const char* format,
                                                              ...) noexcept;

// Names a module ("resource-manager"), so that its level can be set by name. A module keeps its first name.
void vdlDebugNameModule(std::uint32_t module, const char* name);

// Sets levels from text: comma-separated items, "LEVEL" for all modules or "MODULE=LEVEL" for one; later items win.
// LEVEL: off, failure (or error), warning, info (or progress), trace, or a number. The level of a module without a name
// takes effect when it is named. At most 256 names can have a level; a level for all modules removes them all. Returns
// an empty string, or what is wrong with which item; in that case nothing has changed.
std::string vdlDebugSetLevels(const std::string& text);
