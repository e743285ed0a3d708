// What the TV service can show.
#pragma once

#include "tvservice/channel-list.h"

#include <cstdint>
#include <string>

namespace services {

// result::done, or result::unknownChannel for a broadcast URI that is not in the list. Every other URI can be shown.
std::int32_t checkTvUri(const ChannelList& channels, const std::string& uri);

} // namespace services
