// The summary of a series of rounds, which a benchmark reports.
#pragma once

#include <cstddef>
#include <vector>

namespace bench {

struct Summary {
    double min, median, max;
    std::size_t rounds;
};

// Needs at least one value.
Summary summaryOf(std::vector<double> values);

} // namespace bench
