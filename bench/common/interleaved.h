// Sides that take turns: A B A B ..., so that what disturbs the machine disturbs all of them.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace bench {

// One of the sides that are compared. A round runs the side's work for a while and returns the cost of one unit of it.
struct Side {
    std::string name;
    std::function<double()> round;
};

// What one side's rounds cost, in their order.
struct Figures {
    std::string side;
    std::vector<double> rounds;
};

struct Rounds {
    std::size_t warmUp, measured;
};

// Runs all sides round by round and keeps what was measured, in the order of the sides.
std::vector<Figures> interleaved(const std::vector<Side>& sides, Rounds rounds);

inline double nanoseconds(std::chrono::steady_clock::duration time) {
    return std::chrono::duration<double, std::nano>(time).count();
}

// The time that the calling thread has been running: for work that never waits, so that others on the machine do not
// count.
struct ThreadClock {
    using duration = std::chrono::nanoseconds;
    using time_point = std::chrono::time_point<ThreadClock>;
    static time_point now();
};

// How long `times` calls of work take, in nanoseconds.
template <class Clock, class Work> double timeOf(std::size_t times, Work& work) {
    const auto start = Clock::now();
    for (std::size_t i = 0; i < times; ++i) work();
    return nanoseconds(Clock::now() - start);
}

// A side whose round calls work() as often as fills about `length`, and returns the nanoseconds per unit. A call does
// `units` of them.
template <class Clock = std::chrono::steady_clock, class Work>
Side timedSide(std::string name, std::size_t units, std::chrono::nanoseconds length, Work work) {
    return {std::move(name), [units, length, work = std::move(work), times = std::size_t{0}]() mutable {
                if (times == 0) { // doubled until a tenth of the length is reached: short works need many calls
                    std::size_t trial = 1;
                    double took = timeOf<Clock>(trial, work);
                    while (took * 10 < nanoseconds(length)) took = timeOf<Clock>(trial *= 2, work);
                    const double fitting = nanoseconds(length) / took * static_cast<double>(trial);
                    times = fitting < 1 ? 1 : static_cast<std::size_t>(fitting);
                }
                return timeOf<Clock>(times, work) / static_cast<double>(times * units);
            }};
}

// The compiler has to take the bytes at place for used.
inline void keep(const void* place) { asm volatile("" : : "r"(place) : "memory"); }

// Keeps the calling thread, and those that it makes from now on, on one CPU: the last of those that it may use. Throws
// std::system_error.
void pinToOneCpu();

} // namespace bench
