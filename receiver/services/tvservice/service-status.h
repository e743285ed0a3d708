// The status of the whole service: every terminal that shows something or is locked.
#pragma once

#include "tvservice/channel-list.h"
#include "tvservice/locks.h"

#include <tvservice-adapter/service/terminal-table.h>
#include <tvservice/status-records.h>

#include <cstdint>
#include <vector>

namespace services {

tvservice::TvServiceStatusInfo_t statusOf(const std::vector<TerminalTable::Entry>& shown, const Locks& locks,
                                          const ChannelList& channels, std::int32_t listNumber);

} // namespace services
