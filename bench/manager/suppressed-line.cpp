// A suppressed log line, compared with a load and a compare.
#include "cases.h"

#include <genrpc/log.h>

#include <atomic>
#include <chrono>
#include <cstdint>

namespace bench {
namespace {

constexpr std::size_t lines = 16;

// Keeps no values in registers between two lines, as real call sites are separate.
#define BENCH_SIXTEEN(line) line line line line line line line line line line line line line line line line

[[gnu::noinline]] void own() {
#define BENCH_LINE                                                         \
    GENRPC_LOG(genrpc::AdapterLog, vdlDebugTrace, "Called with %d.\n", 1); \
    asm volatile("" : : : "memory");
    BENCH_SIXTEEN(BENCH_LINE)
#undef BENCH_LINE
}

std::atomic<std::uint16_t> level{vdlDebugWarning};
[[gnu::noinline, gnu::cold]] void logLine() { level = vdlDebugWarning; }

[[gnu::noinline]] void loadAndCompare() {
#define BENCH_LINE                                                         \
    if (level.load(std::memory_order_relaxed) >= vdlDebugTrace) logLine(); \
    asm volatile("" : : : "memory");
    BENCH_SIXTEEN(BENCH_LINE)
#undef BENCH_LINE
}
#undef BENCH_SIXTEEN

} // namespace

void suppressedLines(const Options& options) {
    if (!options.wants("suppressed-line")) return;
    const std::chrono::milliseconds length(options.quick ? 4 : 20);
    const auto figures = interleaved({timedSide<ThreadClock>("own", lines, length, own),
                                      timedSide<ThreadClock>("load and compare", lines, length, loadAndCompare)},
                                     options.rounds({3, 31}));
    for (const Figures& side : figures) managerReport.figures("suppressed-line", side, {"ns", "line"});
    managerReport.ratio("suppressed-line", figures[0], figures[1], Goal{12, 2.0});
}

} // namespace bench
