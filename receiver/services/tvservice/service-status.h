// The status of the whole service: every terminal that shows something or is locked.
//
// Field meanings in this service. List: intParam1 the number from the last change of the service list. Entry: intParam1
// and intParam2 the terminal's type and id, byteParam1 whether it shows something, intParam3 to intParam5 network,
// transport stream and service of the channel shown, intParam6 the channel's number (see ChannelList::numberOf), 0 for
// none, shortParam1 the lock's rating, strParam1 the URI shown, byteParam2 whether it is locked.
#pragma once

#include "common/terminal-table.h"
#include "tvservice/channel-list.h"
#include "tvservice/locks.h"

#include <tvservice/status-records.h>

#include <cstdint>
#include <vector>

namespace services {

tvservice::TvServiceStatusInfo_t statusOf(const std::vector<TerminalTable::Entry>& shown, const Locks& locks,
                                          const ChannelList& channels, std::int32_t listNumber);

} // namespace services
