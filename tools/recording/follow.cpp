#include "follow.h"

#include <ctime>
#include <fstream>

namespace recording {
namespace {

// An event is in its ring a little later than its time says.
constexpr std::int64_t recordingDelay = 10'000'000;

std::string bootOfSystem() {
    std::string boot;
    std::getline(std::ifstream("/proc/sys/kernel/random/boot_id"), boot);
    return boot;
}

} // namespace

void follow(const Surroundings& surroundings, Follower& follower) {
    MergedEvents events;
    do {
        for (auto& source : surroundings.appeared()) events.add(std::move(source));
        Moment until = surroundings.now();
        until.time -= recordingDelay;
        for (Event event; events.next(event, until);)
            if (!follower.take(std::move(event))) return;
        if (!follower.rest(until)) return;
    } while (surroundings.pause());
}

Moment presentMoment() {
    static const std::string boot = bootOfSystem();
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return {boot, time.tv_sec * std::int64_t{1'000'000'000} + time.tv_nsec};
}

} // namespace recording
