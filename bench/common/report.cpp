#include "common/report.h"

#include <cstdio>
#include <nlohmann/json.hpp>
#include <stdexcept>

namespace bench {
namespace {

using Json = nlohmann::ordered_json;

void add(Json& line, const Summary& summary) {
    line["min"] = summary.min;
    line["median"] = summary.median;
    line["max"] = summary.max;
    line["rounds"] = summary.rounds;
}

void add(Json& line, const std::optional<Goal>& goal) {
    if (!goal) return;
    line["goal"] = goal->bound;
    line["goalNumber"] = goal->number;
    line["bound"] = goal->direction == Goal::AtMost ? "atMost" : "atLeast";
}

// Flushes, so that the figures from before a failure are not lost.
void print(const Json& line) {
    std::puts(line.dump().c_str());
    std::fflush(stdout);
}

} // namespace

void Report::figures(std::string_view caseName, const Figures& figures, Unit unit, std::optional<Goal> goal) const {
    Json line{{"bench", bench_}, {"case", caseName}, {"side", figures.side}, {"unit", unit.name}, {"per", unit.per}};
    add(line, summaryOf(figures.rounds));
    add(line, goal);
    print(line);
}

void Report::value(std::string_view caseName, std::string_view side, double value, Unit unit,
                   std::optional<Goal> goal) const {
    figures(caseName, {std::string(side), {value}}, unit, goal);
}

void Report::ratio(std::string_view caseName, const Figures& a, const Figures& b, std::optional<Goal> goal) const {
    std::vector<double> ratios;
    for (std::size_t i = 0; i < a.rounds.size(); ++i) ratios.push_back(a.rounds[i] / b.rounds.at(i));
    Json line{{"bench", bench_}, {"case", caseName}, {"ratio", a.side + "/" + b.side}};
    const Summary summary = summaryOf(std::move(ratios));
    add(line, summary);
    line["median"] = summaryOf(a.rounds).median / summaryOf(b.rounds).median;
    line["roundMedian"] = summary.median;
    add(line, goal);
    print(line);
}

void Report::note(std::string_view text) const { print({{"bench", bench_}, {"note", text}}); }

Options Options::of(int argc, char** argv) {
    Options options;
    for (int i = 1; i < argc; ++i) {
        const std::string_view argument = argv[i];
        if (argument == "--quick")
            options.quick = true;
        else if (argument.starts_with("--case="))
            options.filter = argument.substr(std::string_view("--case=").size());
        else
            throw std::invalid_argument("unknown argument '" + std::string(argument) +
                                        "'; known: --quick, --case=TEXT");
    }
    return options;
}

const Figures& of(const std::vector<Figures>& all, std::string_view side) {
    for (const Figures& figures : all)
        if (figures.side == side) return figures;
    throw std::out_of_range("no side '" + std::string(side) + "' was measured");
}

} // namespace bench
