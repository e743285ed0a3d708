// A look at the resource manager's queue, for people and tools.
#pragma once

#include <tvservice/core-records.h>

#include <chrono>
#include <string>
#include <vector>

namespace tvservice {

struct BundleStep {
    std::string operation; // "ResOperation::WaitingStart"
    std::string awaited;   // "ResResponse::ResponseTV"
};

// The limit for the answers of one sending. A bundle that is over it is overdue; it is dropped once the manager has
// heard nothing for a second: no new request, and no answer that lets a bundle advance.
inline constexpr std::chrono::seconds bundleAnswerLimit{5};

struct BundleStatus {
    std::string reqId;
    std::vector<BundleStep> steps; // still to do; the first is under way
    // What it plays or stops something on, those of the MM service first.
    std::vector<TvServiceTerminal_t> terminals{};
    // How long its answers have been awaited, from the sending on; 0 when nothing is awaited.
    std::chrono::milliseconds waited{0};
};

} // namespace tvservice
