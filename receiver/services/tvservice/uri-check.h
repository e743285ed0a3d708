// What the TV service can show.
#pragma once

#include "tvservice/channel-list.h"

#include <cstdint>
#include <string>

namespace services {

// result::done, or result::unknownChannel for a broadcast URI that the list does not have. All else is shown.
std::int32_t checkTvUri(const ChannelList& channels, const std::string& uri);

} // namespace services
