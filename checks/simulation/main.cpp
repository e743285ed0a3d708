// Plays a range of schedules, or one of them once more.
#include "player.h"
#include "situations.h"
#include "subject.h"

#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

using namespace simulation;

int usage(const char* program) {
    std::fprintf(stderr,
                 "usage: %s [--from SEED] [--schedules COUNT]   plays COUNT (1000) of them from SEED (1) on\n"
                 "       %s --seed SEED                         plays one and tells what happens in it\n",
                 program, program);
    return 2;
}

int fail(Schedule schedule, const Difference& difference) {
    std::printf("The manager and the reference differ in the schedule of seed %s.\n",
                std::to_string(schedule.seed).c_str());
    shrink(schedule);
    const auto shrunk = play(schedule);
    if (!shrunk) std::printf("Only after other schedules:\n");
    std::printf("%s", describe(schedule, shrunk ? *shrunk : difference).c_str());
    return 1;
}

} // namespace

int main(int count, char** arguments) {
    std::uint64_t from = 1, schedules = 1000;
    bool one = false;
    for (int i = 1; i < count; i += 2) {
        const std::string option = arguments[i];
        char* end = nullptr;
        const std::uint64_t value = i + 1 < count ? std::strtoull(arguments[i + 1], &end, 10) : 0;
        if (end == nullptr || *end != '\0' || end == arguments[i + 1]) return usage(arguments[0]);
        if (option == "--from")
            from = value;
        else if (option == "--schedules")
            schedules = value;
        else if (option == "--seed")
            from = value, schedules = 1, one = true;
        else
            return usage(arguments[0]);
    }

    Subject::offerServices();
    Schedule schedule;
    for (std::uint64_t i = 0; i < schedules; ++i)
        if (const auto difference = playSeed(from + i, schedule)) {
            std::printf("found %s\n", std::to_string(i + 1).c_str());
            return fail(schedule, *difference);
        }
    if (one) std::printf("%s", describe(schedule).c_str());
    for (std::size_t i = 0; i < situations; ++i)
        std::printf("situation %s %s\n", std::to_string(reached[i]).c_str(), textOf(i));
    return 0;
}
