// The TV service is asked about a number that no channel has; its answer comes after everything before it.
#pragma once

namespace exchange {

constexpr int firstLast = 1'000'000'000; // the numbers above it are for this alone

} // namespace exchange
