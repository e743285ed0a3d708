// What the tuners report for a terminal that switches to a channel. Each type of terminal has its own tuner.
//
// Field meanings in this service:
//   tuner status  byteParam1 state (1 tuning), intParam1 tuner, intParam2 frequency in kHz, intParam3 symbol rate in
//                 kBd, intParam4 transport stream
//   tuner result  byteParam1 whether there is a signal, intParam1 tuner, intParam2 strength and intParam3 quality in
//                 percent
#pragma once

#include "common/terminal-table.h"

#include <tvservice/status-records.h>

#include <string>

namespace services {

tvservice::TvServiceTunerStatusMessage_t tuningFor(const Terminal& terminal, const std::string& channel);
tvservice::TvServiceTunerResult_t tunedFor(const Terminal& terminal);

} // namespace services
