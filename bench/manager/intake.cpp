// Queueing a list while few or many bundles are queued, and the cost per record for different amounts.
#include "cases.h"
#include "managers.h"

#include <host/marshaller.h>

#include <chrono>
#include <malloc.h>
#include <memory>

namespace bench {
namespace {

using Requests = std::vector<tvservice::TvServiceReq_t>;

// A manager without a worker, with queued bundles.
std::shared_ptr<Manager> managerWith(std::size_t bundles, const Requests& requests) {
    auto manager = std::make_shared<Manager>(Manager::OneThread{});
    for (std::size_t i = 0; i < bundles; ++i) manager->ask(requests);
    return manager;
}

std::string labelOf(std::size_t bundles) { return std::to_string(bundles) + " queued"; }

// The nanoseconds for queueing a list behind others. Queues a few at a time, so that their number hardly changes.
Side intakeBehind(std::size_t bundles, std::size_t times, const Requests& requests) {
    return {labelOf(bundles), [manager = managerWith(bundles, requests), times, &requests] {
                constexpr std::size_t few = 10;
                ThreadClock::duration duration{};
                for (std::size_t i = 0; i < times; i += few) {
                    const auto start = ThreadClock::now();
                    for (std::size_t j = 0; j < few; ++j) manager->ask(requests);
                    duration += ThreadClock::now() - start;
                    for (std::size_t j = 0; j < few; ++j) manager->dropLast();
                }
                return nanoseconds(duration) / static_cast<double>(times);
            }};
}

// A bundle from its request to its answer, queued behind others, whose number does not change.
Side lifeBehind(std::size_t bundles, std::chrono::nanoseconds length, const Requests& requests) {
    return timedSide<ThreadClock>(labelOf(bundles), 1, length, [manager = managerWith(bundles, requests), &requests] {
        manager->ask(requests);
        for (const auto finished = manager->answered(); manager->answered() == finished;) manager->work();
    });
}

void lifeOfLists(const Options& options, const std::string& caseName, const std::string& uri) {
    if (!options.wants(caseName)) return;
    const std::chrono::milliseconds length(options.quick ? 4 : 20);
    std::vector<Side> sides;
    for (const std::size_t terminals : {1U, 8U, 64U})
        sides.push_back(timedSide<ThreadClock>(std::to_string(terminals) + " terminals", terminals, length,
                                               [manager = managerWith(0, {}), requests = playRequests(terminals, uri)] {
                                                   manager->ask(requests);
                                                   while (manager->work()) {
                                                   }
                                               }));
    const auto figures = interleaved(sides, options.rounds({3, 21}));
    for (const Figures& side : figures) managerReport.figures(caseName, side, {"ns", "terminal"});
    for (std::size_t i = 1; i < figures.size(); ++i)
        managerReport.ratio(caseName, figures[i], figures[0], Goal{growthGoal, growthBound});
}

// The bytes in use on the heap and in flat memory.
double bytesInUse() { return static_cast<double>(mallinfo2().uordblks + host::flatHeapUsage().bytes); }

// Memory after that many bundles were queued and processed, in the same manager.
void memoryAfterwards(const std::string& caseName, std::size_t bundles, std::size_t terminals) {
    const auto requests = playRequests(terminals, liveUri);
    ManagerWithProxy manager{Manager::OneThread{}};
    const auto process = [&](std::size_t count) {
        for (std::size_t i = 0; i < count; ++i) manager.ask(requests);
        while (manager.work()) {
        }
    };
    process(1); // creates everything that is created once
    const double before = bytesInUse();
    process(bundles);
    const double after = bytesInUse();
    managerReport.value(caseName, "before", before, {"bytes", "process"});
    managerReport.value(caseName, "after", after, {"bytes", "process"});
    managerReport.ratio(caseName, {"after", {after}}, {"before", {before}}, Goal{growthGoal, 1.01});
}

} // namespace

void intake(const Options& options) {
    const auto requests = playRequests(1, liveUri);
    if (options.wants("intake")) {
        const std::size_t times = options.quick ? 2000 : 10000;
        const auto figures = interleaved({intakeBehind(10, times, requests), intakeBehind(1000, times, requests)},
                                         options.rounds({3, 31}));
        for (const Figures& side : figures) managerReport.figures("intake", side, {"ns", "list"});
        managerReport.ratio("intake", figures[1], figures[0], Goal{11, 1.2});
    }
}

void growth(const Options& options) {
    const auto requests = playRequests(1, liveUri);
    if (options.wants("growth/bundles")) {
        const std::chrono::milliseconds length(options.quick ? 4 : 20);
        const auto figures =
            interleaved({lifeBehind(1, length, requests), lifeBehind(1000, length, requests)}, options.rounds({3, 21}));
        for (const Figures& side : figures) managerReport.figures("growth/bundles", side, {"ns", "bundle"});
        managerReport.ratio("growth/bundles", figures[1], figures[0], Goal{growthGoal, growthBound});
    }
    lifeOfLists(options, "growth/live-terminals", liveUri);
    lifeOfLists(options, "growth/network-terminals", networkUri);
    if (options.wants("growth/memory")) {
        memoryAfterwards("growth/memory-bundles", 1000, 1);
        memoryAfterwards("growth/memory-terminals", 1, 64);
    }
}

} // namespace bench
