// Composes the libraries of the platform: passes the configuration to them and chooses the transports. The libraries
// themselves do not depend on it, so that each can be used and tested alone.
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

// Logs one line for each error.
void reportLevelErrors(const std::string& errors) {
    for (std::size_t start = 0; start < errors.size();) {
        const std::size_t end = std::min(errors.find('\n', start), errors.size());
        debug::writeLine(levelWordOf(Module::vdl, vdlDebugWarning), "TVSA_LOG: " + errors.substr(start, end - start));
        start = end + 1;
    }
}

// Reports invalid levels and applies the others. An invalid configuration file is reported with the first line that is
// printed.
void applyConfiguredLevels() {
    nameModule(Module::vdl, "vdl");
    try {
        reportLevelErrors(debug::setValidLevels(setting("log.levels")->text));
    } catch (const ConfigurationError&) {
    }
}

// The first of the library's initialisers, so that the settings apply to what the others print and allocate.
[[gnu::constructor(101)]] void compose() {
    debug::jsonIsWanted = jsonIsConfigured;
    flatHeapMegabytes = configuredHeapMegabytes;
    io::makeTransports = configuredTransports;
    applyConfiguredLevels();
}

} // namespace
} // namespace host
