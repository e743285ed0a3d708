// Puts the libraries of the platform together: what each is to use of the configuration, and which transports there
// are. The libraries below know nothing of it, so that each can be used and tested without the others.
#include "codec/flat-heap-size.h"
#include "configured-transports.h"
#include "log-levels/levels.h"
#include "log/log.h"
#include "log/output.h"
#include "settings/number.h"
#include "transport/transports.h"

#include <host/configuration.h>
#include <vdl/debug.h>

#include <algorithm>
#include <string>

namespace host {
namespace {

bool jsonIsConfigured(std::string& problem) {
    try {
        return setting("log.format")->text == "json";
    } catch (const ConfigurationError& error) {
        problem = error.what() + std::string("; text is used");
        return false;
    }
}

std::size_t configuredHeapMegabytes(std::string& problem) {
    return static_cast<std::size_t>(config::numberOf("flat_heap.megabytes", problem));
}

// A line for each of the complaints.
void reportLevelComplaints(const std::string& complaints) {
    for (std::size_t start = 0; start < complaints.size();) {
        const std::size_t end = std::min(complaints.find('\n', start), complaints.size());
        debug::writeLine(levelWordOf(Module::vdl, vdlDebugWarning),
                         "TVSA_LOG: " + complaints.substr(start, end - start));
        start = end + 1;
    }
}

// What cannot be used of the levels is reported; the rest holds. A configuration file that is wrong is reported with
// the first line printed.
void takeConfiguredLevels() {
    nameModule(Module::vdl, "vdl");
    try {
        reportLevelComplaints(debug::setUsableLevels(setting("log.levels")->text));
    } catch (const ConfigurationError&) {
    }
}

// First among the library's initialisers, so that all of it holds for what the others print and allocate.
[[gnu::constructor(101)]] void compose() {
    debug::jsonIsWanted = jsonIsConfigured;
    flatHeapMegabytes = configuredHeapMegabytes;
    io::makeTransports = configuredTransports;
    takeConfiguredLevels();
}

} // namespace
} // namespace host
