// The state of the resource manager's queue, for users and tools.
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

// The time limit for the answers to one sending. A bundle that exceeds it is overdue; it is dropped once the manager
// has received nothing for a second: no new request, and no answer that lets a bundle advance.
inline constexpr std::chrono::seconds bundleAnswerLimit{5};

struct BundleStatus {
    std::string reqId;
    std::vector<BundleStep> steps; // not completed yet; the first is the current one
    // The terminals that it plays or stops on, those of the MM service first.
    std::vector<TvServiceTerminal_t> terminals{};
    // The time since the sending, while its answers are awaited; 0 when none are awaited.
    std::chrono::milliseconds waited{0};
};

} // namespace tvservice
