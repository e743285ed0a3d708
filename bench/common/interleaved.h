// Measures sides in turns, A B A B ..., so that disturbances of the machine affect all of them.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace bench {

// One of the compared sides. A round runs the side's work for a while and returns the cost of one unit.
struct Side {
    std::string name;
    std::function<double()> round;
};

// The costs of one side's rounds, in order.
struct Figures {
    std::string side;
    std::vector<double> rounds;
};

struct Rounds {
    std::size_t warmUp, measured;
};

// Runs all sides round by round, and returns the measured rounds in the order of the sides.
std::vector<Figures> interleaved(const std::vector<Side>& sides, Rounds rounds);

inline double nanoseconds(std::chrono::steady_clock::duration time) {
    return std::chrono::duration<double, std::nano>(time).count();
}

// The CPU time of the calling thread. For work that never waits, so that other load on the machine does not count.
struct ThreadClock {
    using duration = std::chrono::nanoseconds;
    using time_point = std::chrono::time_point<ThreadClock>;
    static time_point now();
};

// The duration of `times` calls of work, in nanoseconds.
template <class Clock, class Work> double timeOf(std::size_t times, Work& work) {
    const auto start = Clock::now();
    for (std::size_t i = 0; i < times; ++i) work();
    return nanoseconds(Clock::now() - start);
}

// A side whose round calls work() for about `length`, and returns the nanoseconds per unit. Each call processes `units`
// units.
template <class Clock = std::chrono::steady_clock, class Work>
Side timedSide(std::string name, std::size_t units, std::chrono::nanoseconds length, Work work) {
    return {std::move(name), [units, length, work = std::move(work), times = std::size_t{0}]() mutable {
                if (times == 0) { // doubles the calls until they take a tenth of the length
                    std::size_t trial = 1;
                    double duration = timeOf<Clock>(trial, work);
                    while (duration * 10 < nanoseconds(length)) duration = timeOf<Clock>(trial *= 2, work);
                    const double fitting = nanoseconds(length) / duration * static_cast<double>(trial);
                    times = fitting < 1 ? 1 : static_cast<std::size_t>(fitting);
                }
                return timeOf<Clock>(times, work) / static_cast<double>(times * units);
            }};
}

// Prevents the compiler from removing the computation of the bytes at the address.
inline void keep(const void* address) { asm volatile("" : : "r"(address) : "memory"); }

// Pins the calling thread, and those that it creates from now on, to the last CPU that it may use. Throws
// std::system_error.
void pinToOneCpu();

} // namespace bench
