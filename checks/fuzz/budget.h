// What the handling of an input may cost: memory and steps in proportion to the input, whatever it claims.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace fuzz {

// From construction on counts what operator new gives out (at most at one time) and the steps of instrumented code (the
// edges between its basic blocks; none in builds that do not count them). One at a time.
class Measure {
public:
    Measure();
    ~Measure();
    Measure(const Measure&) = delete;
    Measure& operator=(const Measure&) = delete;

    // Ends the process unless at most 4 KiB + 4 bytes for each of the input's have been in use, and at most 1000 steps
    // + stepsPerByte for each of the input's done; both beside what the result takes by its nature.
    void check(const std::string& what, std::size_t inputSize, std::size_t resultBytes, std::uint64_t stepsPerByte,
               std::uint64_t resultSteps = 0);

private:
    std::uint64_t firstStep_;
    std::uint64_t flatBytes_; // in use when it began
};

// While it lives nothing is counted.
class Pause {
public:
    Pause();
    ~Pause();
    Pause(const Pause&) = delete;
    Pause& operator=(const Pause&) = delete;

private:
    bool former_;
    std::uint64_t steps_;
};

} // namespace fuzz
