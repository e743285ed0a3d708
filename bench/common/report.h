// The output of benchmark programs: an object per line on stdout, which bench/report combines.
#pragma once

#include "common/interleaved.h"
#include "common/statistics.h"

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace bench {

// A row of the table of goals, and the bound of a figure.
struct Goal {
    int number;
    double bound;
    enum Direction { AtMost, AtLeast } direction = AtMost;
};

struct Unit {
    std::string_view name; // "ns"
    std::string_view per;  // "record"
};

class Report {
public:
    explicit Report(std::string bench) : bench_(std::move(bench)) {}

    // {"bench","case","side","unit","per","min","median","max","rounds"}
    void figures(std::string_view caseName, const Figures& figures, Unit unit,
                 std::optional<Goal> goal = std::nullopt) const;
    // A single measured value: a figure of one round.
    void value(std::string_view caseName, std::string_view side, double value, Unit unit,
               std::optional<Goal> goal = std::nullopt) const;
    // {"bench","case","ratio":"a/b","median","roundMedian","min","max","rounds"}: median is the ratio of the medians,
    // the others are of the ratios of each round.
    void ratio(std::string_view caseName, const Figures& a, const Figures& b,
               std::optional<Goal> goal = std::nullopt) const;
    // {"bench","note"}: for example what was omitted, and why.
    void note(std::string_view text) const;

private:
    std::string bench_;
};

// Options of every program: --quick for fewer and shorter rounds, --case=TEXT for the cases whose names contain the
// text.
struct Options {
    bool quick = false;
    std::string filter;

    // Throws std::invalid_argument for other arguments.
    static Options of(int argc, char** argv);
    bool wants(std::string_view caseName) const { return caseName.find(filter) != std::string_view::npos; }
    Rounds rounds(Rounds usual) const { return quick ? Rounds{1, std::min<std::size_t>(usual.measured, 9)} : usual; }
};

// The figures of a side. Throws std::out_of_range if there is no such side.
const Figures& of(const std::vector<Figures>& all, std::string_view side);

} // namespace bench
