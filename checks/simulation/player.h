// Plays schedules on both stages and compares.
#pragma once

#include "events.h"

#include <cstdint>
#include <optional>
#include <string>

namespace simulation {

// The first event after which the manager and the reference differ.
struct Difference {
    std::size_t event;
    std::string expected, actual;
};

// Makes and plays the schedule of a seed.
std::optional<Difference> playSeed(std::uint64_t seed, Schedule& schedule);
std::optional<Difference> play(const Schedule& schedule);

// Leaves out what the difference does not need.
void shrink(Schedule& schedule);

// For people: the schedule and where the two went apart.
std::string describe(const Schedule& schedule, const Difference& difference);

} // namespace simulation
