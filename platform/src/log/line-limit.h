// Keeps lines that peers can cause from filling the log. Part of the output: nobody else limits lines.
#pragma once

#include <vdl/debug.h>

#include <atomic>
#include <chrono>
#include <cstdint>

namespace host::debug {

// The limit of one kind of line. In each second it lets the first lines through; how many more there were is told in a
// line of its own when the second is over, before the next of its kind or by tellHeldBack. For any thread; takes no
// lock and no memory.
class LineLimit {
public:
    using Clock = std::chrono::steady_clock;
    static constexpr std::uint32_t mostPerSecond = 20;

    // format: of the line, which the line about those held back names the kind by.
    constexpr explicit LineLimit(const char* format) : format_(format) {}
    LineLimit(const LineLimit&) = delete;
    LineLimit& operator=(const LineLimit&) = delete;

    // Whether the line of that level may be written now.
    bool admits(const vdlDebugChunk& chunk, Clock::time_point now = Clock::now()) noexcept;

    // Tells of the lines of all kinds that were held back in seconds which are over. Returns whether this second has
    // others, for which it must be called again.
    static bool tellHeldBack(Clock::time_point now = Clock::now()) noexcept;

    // The limit of the lines that a module makes of a format at one severity; made, and kept for ever, for the first of
    // them. Null when there is no memory, or there are too many kinds already.
    static LineLimit* of(std::uint32_t levelWord, const char* format) noexcept;

private:
    void enlist() noexcept;
    bool tellOwn(std::uint64_t second) noexcept;
    void tell(std::uint64_t lines) const noexcept;

    const char* const format_;
    std::atomic<std::uint64_t> state_{0}; // the second, and in the lower half how many lines there were in it
    std::atomic<std::uint32_t> levelWord_{0};
    std::atomic<bool> listed_{false};
    LineLimit* next_ = nullptr; // of those that ever held a line back; fixed once listed
};

// Sees to it that tellHeldBack is called when this second is over, on a thread that ends when there is nothing to tell.
void tellHeldBackLater() noexcept;

} // namespace host::debug
