#include "line-limit.h"

#include "log/output.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>
#include <exception>
#include <functional>
#include <limits>
#include <new>
#include <pthread.h>
#include <string>
#include <string_view>
#include <thread>

namespace host::debug {
namespace {

constinit std::atomic<LineLimit*> first{nullptr};

constexpr unsigned secondShift = 32;

std::uint64_t secondOf(LineLimit::Clock::time_point time) noexcept {
    const auto seconds = std::chrono::floor<std::chrono::seconds>(time.time_since_epoch()).count();
    return static_cast<std::uint64_t>(std::clamp<std::int64_t>(seconds, 0, std::numeric_limits<std::uint32_t>::max()));
}

std::uint64_t linesOf(std::uint64_t state) noexcept { return state & std::numeric_limits<std::uint32_t>::max(); }

// A limit with its key. It has a copy of the format, because the library with the original can be unloaded.
struct KindOfLine {
    KindOfLine(std::uint32_t levelWord_, const char* format_)
        : levelWord(levelWord_), format(format_), limit(format.c_str()) {}
    const std::uint32_t levelWord;
    const std::string format;
    LineLimit limit;
};

// A hash table with linear probing. It has more entries than there are kinds of lines.
constinit std::array<std::atomic<KindOfLine*>, 1024> kinds{};

constinit std::atomic<bool> reporterRuns{false};

// Runs until no lines are suppressed any more.
void reportEverySecond() noexcept {
    pthread_setname_np(pthread_self(), "debug");
    do {
        do {
            const auto now = LineLimit::Clock::now();
            std::this_thread::sleep_until(std::chrono::floor<std::chrono::seconds>(now) + std::chrono::seconds(1));
        } while (LineLimit::reportSuppressed());
        reporterRuns = false;
        // Checks again: between the two lines above, a line may have been suppressed without starting a new thread.
    } while (LineLimit::reportSuppressed() && !reporterRuns.exchange(true));
}

} // namespace

bool LineLimit::admits(const vdlDebugChunk& chunk, Clock::time_point now) noexcept {
    levelWord_ = chunk.levelWord; // before any thread can report this line
    const std::uint64_t second = secondOf(now);
    std::uint64_t before = state_.load(), after;
    do {
        // The second never decreases: at its end, the slower of two threads may have the older time.
        after = second > before >> secondShift ? (second << secondShift) + 1 : before + 1;
    } while (!state_.compare_exchange_weak(before, after));
    if (after != before + 1 && linesOf(before) > mostPerSecond) report(linesOf(before) - mostPerSecond);
    if (linesOf(after) <= mostPerSecond) return true;
    enlist();
    return false;
}

LineLimit* LineLimit::of(std::uint32_t levelWord, const char* format) noexcept {
    const std::size_t start = std::hash<std::string_view>()(format) + levelWord;
    KindOfLine* made = nullptr;
    LineLimit* found = nullptr;
    for (std::size_t i = 0; i < kinds.size() && !found; ++i) {
        auto& place = kinds[(start + i) % kinds.size()];
        KindOfLine* kind = place.load(std::memory_order_acquire);
        if (!kind) {
            try {
                if (!made) made = new KindOfLine(levelWord, format);
            } catch (const std::bad_alloc&) {
                return nullptr;
            }
            if (place.compare_exchange_strong(kind, made)) return &made->limit;
        }
        if (kind->levelWord == levelWord && kind->format == format) found = &kind->limit;
    }
    delete made; // another thread was first
    return found;
}

void LineLimit::enlist() noexcept {
    if (listed_.exchange(true)) return;
    next_ = first.load();
    while (!first.compare_exchange_weak(next_, this)) {
    }
}

bool LineLimit::reportSuppressed(Clock::time_point now) noexcept {
    const std::uint64_t second = secondOf(now);
    bool others = false;
    for (LineLimit* limit = first; limit; limit = limit->next_)
        if (limit->reportOwn(second)) others = true;
    return others;
}

bool LineLimit::reportOwn(std::uint64_t second) noexcept {
    std::uint64_t state = state_.load();
    do {
        if (linesOf(state) <= mostPerSecond) return false;
        if (state >> secondShift >= second) return true;
    } while (!state_.compare_exchange_weak(state, state - linesOf(state) + mostPerSecond));
    report(linesOf(state) - mostPerSecond);
    return false;
}

void LineLimit::report(std::uint64_t lines) const noexcept {
    vdlDebugChunk chunk;
    if (!vdlDebugCheckLevelGetFrameAndChunk(levelWord_, chunk)) return;
    char text[512];
    const int length = std::snprintf(text, sizeof text, "... and %llu more like it: %s",
                                     static_cast<unsigned long long>(lines), format_);
    writeLine(chunk.levelWord, {text, std::min(static_cast<std::size_t>(length), sizeof text - 1)});
}

void reportSuppressedLater() noexcept {
    if (reporterRuns.exchange(true)) return;
    try {
        std::thread(reportEverySecond).detach();
    } catch (const std::exception&) { // out of memory or threads: the next line of the kind reports
        reporterRuns = false;
    }
}

} // namespace host::debug
