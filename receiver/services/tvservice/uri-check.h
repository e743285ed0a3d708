// What the TV service can show.
#pragma once

#include "tvservice/channel-list.h"

#include <cstdint>
#include <string>

namespace services {

// The TV service shows broadcasts ("dvb") of the channel list, HDMI inputs ("hdmi", "rec") and recordings ("rec", and
// "file" and "fsl2", of which the adapter sends it only recordings). Returns result::done, result::unknownChannel for a
// broadcast that is not in the list, or result::unsupportedUri.
std::int32_t checkTvUri(const ChannelList& channels, const std::string& uri);

} // namespace services
