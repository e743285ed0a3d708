#include "debug/line-limit.h"

#include <algorithm>
#include <limits>

namespace host::debug {
namespace {

constinit std::atomic<LineLimit*> first{nullptr};

constexpr unsigned secondShift = 32;

std::uint64_t secondOf(LineLimit::Clock::time_point time) noexcept {
    const auto seconds = std::chrono::floor<std::chrono::seconds>(time.time_since_epoch()).count();
    return static_cast<std::uint64_t>(std::clamp<std::int64_t>(seconds, 0, std::numeric_limits<std::uint32_t>::max()));
}

std::uint64_t linesOf(std::uint64_t state) noexcept { return state & std::numeric_limits<std::uint32_t>::max(); }

} // namespace

bool LineLimit::admits(const vdlDebugChunk& chunk, Clock::time_point now) noexcept {
    levelWord_ = chunk.levelWord; // before anybody can tell of this line
    const std::uint64_t second = secondOf(now);
    std::uint64_t before = state_.load(), after;
    do {
        // Never back: of two threads at the second's end the slower one may come with the older time.
        after = second > before >> secondShift ? (second << secondShift) + 1 : before + 1;
    } while (!state_.compare_exchange_weak(before, after));
    if (after != before + 1 && linesOf(before) > mostPerSecond) tell(linesOf(before) - mostPerSecond);
    if (linesOf(after) <= mostPerSecond) return true;
    enlist();
    return false;
}

void LineLimit::enlist() noexcept {
    if (listed_.exchange(true)) return;
    next_ = first.load();
    while (!first.compare_exchange_weak(next_, this)) {
    }
}

bool LineLimit::tellHeldBack(Clock::time_point now) noexcept {
    const std::uint64_t second = secondOf(now);
    bool others = false;
    for (LineLimit* limit = first; limit; limit = limit->next_)
        if (limit->tellOwn(second)) others = true;
    return others;
}

bool LineLimit::tellOwn(std::uint64_t second) noexcept {
    std::uint64_t state = state_.load();
    do {
        if (linesOf(state) <= mostPerSecond) return false;
        if (state >> secondShift >= second) return true;
    } while (!state_.compare_exchange_weak(state, state - linesOf(state) + mostPerSecond));
    tell(linesOf(state) - mostPerSecond);
    return false;
}

void LineLimit::tell(std::uint64_t lines) const noexcept {
    vdlDebugChunk chunk;
    if (vdlDebugCheckLevelGetFrameAndChunk(levelWord_, chunk))
        vdlDebugOutput0(chunk, "... and %llu more like it: %s", static_cast<unsigned long long>(lines), format_);
}

} // namespace host::debug
