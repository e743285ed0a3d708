// A look at the resource manager's queue, for people and tools.
#pragma once

#include <string>
#include <vector>

namespace tvservice {

struct BundleStep {
    std::string operation; // "ResOperation::WaitingStart"
    std::string awaited;   // "ResResponse::ResponseTV"
};

struct BundleStatus {
    std::string reqId;
    std::vector<BundleStep> steps; // still to do; the first is under way
};

} // namespace tvservice
