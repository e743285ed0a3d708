// Reports a check's figures: appends a line of JSON for each to the file that CHECK_FIGURES names.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>

namespace checks {

inline void reportFigure(const std::string& name, std::int64_t value, const std::string& unit,
                         const std::string& bound = {}) {
    const char* const file = std::getenv("CHECK_FIGURES");
    if (file == nullptr) return;
    nlohmann::ordered_json line{{"figure", name}, {"value", value}, {"unit", unit}};
    if (!bound.empty()) line["bound"] = bound;
    std::ofstream(file, std::ios::app) << line.dump() << '\n';
}

} // namespace checks
