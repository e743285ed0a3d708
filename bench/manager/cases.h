// The cases of manager_bench. Each prints its figures.
#pragma once

#include "common/report.h"

namespace bench {

inline const Report managerReport("manager");

// The goal without a number: costs that must not grow with the amount, and memory that must be released.
inline constexpr int growthGoal = 0;
inline constexpr double growthBound = 1.15;

void bursts(const Options& options);
void fanOut(const Options& options);
void intake(const Options& options);
void growth(const Options& options);
void suppressedLines(const Options& options);

} // namespace bench
