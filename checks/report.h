// Prints the results of a check as it runs.
#pragma once

#include "figure.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <functional>
#include <iostream>
#include <string>
#include <vector>

namespace checks {

struct Scenario {
    const char* name;
    std::function<void()> run;
};

class Report {
public:
    void line(const std::string& what, std::int64_t value, const std::string& unit, bool held,
              const std::string& bound = {}) {
        std::printf("%-56s %12lld %-14s %s%s\n", what.c_str(), static_cast<long long>(value), unit.c_str(),
                    bound.c_str(), held ? "" : "  NOT HELD");
        reportFigure(what, value, unit, bound);
        held_ = held_ && held;
    }
    // A scenario holds unless it throws.
    void run(const std::string& name, const std::function<void()>& scenario) {
        std::string result = "held";
        try {
            scenario();
        } catch (const std::exception& error) {
            result = std::string("FAILED: ") + error.what();
            held_ = false;
        }
        std::cout << name << ": " << result << std::endl;
    }
    // Runs the scenarios, or only the one that the arguments name with --only. Returns 2 when they name no scenario.
    int runAll(const std::vector<Scenario>& scenarios, const std::vector<std::string>& arguments) {
        const std::string only = onlyOf(arguments);
        bool found = false;
        for (const Scenario& scenario : scenarios) {
            if (!only.empty() && only != scenario.name) continue;
            run(scenario.name, scenario.run);
            found = true;
        }
        if (found) return 0;
        std::cerr << "no scenario is called \"" << only << "\"\n";
        return 2;
    }
    // The name after --only; empty without it.
    static std::string onlyOf(const std::vector<std::string>& arguments) {
        const auto option = std::find(arguments.begin(), arguments.end(), "--only");
        return arguments.end() - option > 1 ? option[1] : std::string();
    }
    int exitCode() const { return held_ ? 0 : 1; }

private:
    bool held_ = true;
};

} // namespace checks
