// 100 play requests at once: the cost with the worker, and the cost of the same work in the requesting thread.
#include "cases.h"
#include "managers.h"

#include <chrono>
#include <memory>

namespace bench {
namespace {

constexpr std::size_t burst = 100;

// Nanoseconds per request from the first call to the last answer.
template <class M> double withWorker(M& manager, const std::vector<std::vector<tvservice::TvServiceReq_t>>& calls) {
    const auto last = manager.answered() + calls.size();
    const auto start = std::chrono::steady_clock::now();
    for (const auto& requests : calls) manager.ask(requests);
    manager.waitForAnswers(last);
    return nanoseconds(std::chrono::steady_clock::now() - start) / static_cast<double>(calls.size());
}

template <class M> double inOneThread(M& manager, const std::vector<std::vector<tvservice::TvServiceReq_t>>& calls) {
    const auto start = std::chrono::steady_clock::now();
    for (const auto& requests : calls) manager.ask(requests);
    while (manager.work()) {
    }
    return nanoseconds(std::chrono::steady_clock::now() - start) / static_cast<double>(calls.size());
}

template <class M> void compare(const Options& options, const std::string& caseName) {
    if (!options.wants(caseName)) return;
    std::vector<std::vector<tvservice::TvServiceReq_t>> calls;
    for (const auto& request : playRequests(burst, liveUri)) calls.push_back({request});
    M threaded;
    M single(Manager::OneThread{});
    const std::size_t repeats = options.quick ? 5 : 20;
    const auto round = [&](const auto& run) {
        return [&, run] {
            std::vector<double> durations;
            for (std::size_t i = 0; i < repeats; ++i) durations.push_back(run());
            return summaryOf(std::move(durations)).median;
        };
    };
    const auto figures = interleaved({{"own", round([&] { return withWorker(threaded, calls); })},
                                      {"one thread", round([&] { return inOneThread(single, calls); })}},
                                     options.rounds({3, 31}));
    for (const Figures& side : figures) managerReport.figures(caseName, side, {"ns", "request"});
    managerReport.ratio(caseName, figures[0], figures[1], Goal{8, 2.0});
}

} // namespace

void bursts(const Options& options) {
    compare<ManagerWithProxy>(options, "burst/with-messages");
    compare<Manager>(options, "burst/manager-alone");
}

} // namespace bench
