// What a row of rounds says: the figures that a benchmark reports.
#pragma once

#include <cstddef>
#include <vector>

namespace bench {

struct Summary {
    double min, median, max;
    std::size_t rounds;
};

// Of at least one value.
Summary summaryOf(std::vector<double> values);

} // namespace bench
