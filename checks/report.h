// Prints the results of a check as it runs.
#pragma once

#include "figure.h"

#include <cstdint>
#include <cstdio>
#include <exception>
#include <functional>
#include <iostream>
#include <string>

namespace checks {

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
    int exitCode() const { return held_ ? 0 : 1; }

private:
    bool held_ = true;
};

} // namespace checks
