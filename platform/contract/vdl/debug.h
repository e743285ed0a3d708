// Debug output: printf-style lines, each with a level word = module number * 65536 + severity.
//
// A call site asks vdlDebugCheckLevelGetFrameAndChunk first and calls vdlDebugOutput0 only when it says yes, so a
// suppressed line costs a load and a compare and its arguments are not evaluated. Levels may change at any time.
// Every function may be called from any thread, also before main and after it.
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

// One line under way, between check and output.
struct vdlDebugChunk {
    std::uint32_t levelWord;
};

// Whether a line of this level word is wanted now; if so, chunk is ready for vdlDebugOutput0.
inline bool vdlDebugCheckLevelGetFrameAndChunk(std::uint32_t levelWord, vdlDebugChunk& chunk) {
    if ((levelWord & 0xFFFF) > vdlDebugLevels[(levelWord >> 16) % vdlDebugModules].load(std::memory_order_relaxed))
        return false;
    chunk.levelWord = levelWord;
    return true;
}

// Prints one line. A final line feed is the line's end; further ones inside continue it. Never throws. Cold: most lines
// are not wanted most of the time, so what they need lies out of the way of those who only ask.
[[gnu::format(printf, 2, 3), gnu::cold]] void vdlDebugOutput0(const vdlDebugChunk& chunk, const char* format,
                                                              ...) noexcept;

// Gives a module number the name by which people set its level ("resource-manager"). Naming twice keeps the first.
void vdlDebugNameModule(std::uint32_t module, const char* name);

// Sets levels from text: comma-separated items, "LEVEL" for all modules or "MODULE=LEVEL" for one, later ones winning.
// LEVEL: off, failure (or error), warning, info (or progress), trace, or a number. A module that is not named yet takes
// its level when it is. At most 256 modules have a level by name, until one for all modules forgets the names. Returns
// an empty string, or what was wrong with which item; then nothing has changed.
std::string vdlDebugSetLevels(const std::string& text);
