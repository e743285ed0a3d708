// Keeps lines that peers can cause from filling the log. Part of the output; no other code limits lines.
#pragma once

#include <vdl/debug.h>

#include <atomic>
#include <chrono>
#include <cstdint>

namespace host::debug {

// The limit of one kind of line. Admits the first lines of each second and suppresses the others. When the second is
// over, a line of its own reports how many these were, either before the next line of the kind or by reportSuppressed.
// From any thread; takes no lock and allocates no memory.
class LineLimit {
public:
    using Clock = std::chrono::steady_clock;
    static constexpr std::uint32_t mostPerSecond = 20;

    // format: the lines' format, which reports show.
    constexpr explicit LineLimit(const char* format) : format_(format) {}
    LineLimit(const LineLimit&) = delete;
    LineLimit& operator=(const LineLimit&) = delete;

    // Whether a line of that level may be written now.
    bool admits(const vdlDebugChunk& chunk, Clock::time_point now = Clock::now()) noexcept;

    // Reports the lines of all kinds that were suppressed in past seconds. Returns whether lines were suppressed in
    // this second; then it must be called again.
    static bool reportSuppressed(Clock::time_point now = Clock::now()) noexcept;

    // The limit for a module, severity and format; created for the first such line and never destroyed. Null when out
    // of memory, or when there are too many kinds.
    static LineLimit* of(std::uint32_t levelWord, const char* format) noexcept;

private:
    void enlist() noexcept;
    bool reportOwn(std::uint64_t second) noexcept;
    void report(std::uint64_t lines) const noexcept;

    const char* const format_;
    std::atomic<std::uint64_t> state_{0}; // the second, and in the lower half the number of its lines
    std::atomic<std::uint32_t> levelWord_{0};
    std::atomic<bool> listed_{false};
    LineLimit* next_ = nullptr; // in the list of limits that have suppressed a line; fixed once listed
};

// Has a thread call reportSuppressed when this second is over. The thread ends when there is nothing left to report.
void reportSuppressedLater() noexcept;

} // namespace host::debug
