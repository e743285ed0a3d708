// The cases of manager_bench; each prints its figures.
#pragma once

#include "common/report.h"

namespace bench {

inline const Report managerReport("manager");

// Of the rows of goals that have no number: costs that must not grow with the amount, memory that must come back.
inline constexpr int growthGoal = 0;
inline constexpr double growthBound = 1.15;

void bursts(const Options& options);
void fanOut(const Options& options);
void intake(const Options& options);
void growth(const Options& options);
void suppressedLines(const Options& options);

} // namespace bench
