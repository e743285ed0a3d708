#include "common/interleaved.h"

#include "common/statistics.h"

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <sched.h>
#include <system_error>

namespace bench {

Summary summaryOf(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    const std::size_t half = values.size() / 2;
    const double median = values.size() % 2 ? values[half] : (values[half - 1] + values[half]) / 2;
    return {values.front(), median, values.back(), values.size()};
}

std::vector<Figures> interleaved(const std::vector<Side>& sides, Rounds rounds) {
    std::vector<Figures> figures;
    for (const Side& side : sides) {
        figures.push_back({side.name, {}});
        figures.back().rounds.reserve(rounds.measured);
    }
    for (std::size_t round = 0; round < rounds.warmUp + rounds.measured; ++round) {
        for (std::size_t i = 0; i < sides.size(); ++i) {
            const double figure = sides[i].round();
            if (round >= rounds.warmUp) figures[i].rounds.push_back(figure);
        }
    }
    return figures;
}

ThreadClock::time_point ThreadClock::now() {
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return time_point(std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec));
}

void pinToOneCpu() {
    cpu_set_t allowed, selected;
    if (sched_getaffinity(0, sizeof allowed, &allowed) != 0)
        throw std::system_error(errno, std::generic_category(), "sched_getaffinity");
    int last = CPU_SETSIZE - 1;
    while (!CPU_ISSET(last, &allowed)) --last;
    CPU_ZERO(&selected);
    CPU_SET(last, &selected);
    if (sched_setaffinity(0, sizeof selected, &selected) != 0)
        throw std::system_error(errno, std::generic_category(), "sched_setaffinity");
}

} // namespace bench
