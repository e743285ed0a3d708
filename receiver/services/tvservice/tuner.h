// What the tuners report for a terminal that switches to a channel. Each type of terminal has its own tuner.
#pragma once

#include <tvservice-adapter/service/terminal-table.h>
#include <tvservice/status-records.h>

#include <string>

namespace services {

tvservice::TvServiceTunerStatusMessage_t tuningFor(const Terminal& terminal, const std::string& channel);
tvservice::TvServiceTunerResult_t tunedFor(const Terminal& terminal);

} // namespace services
