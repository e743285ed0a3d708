#include "tvservice/uri-check.h"

#include "common/result.h"

#include <ov/uri.h>

namespace services {

std::int32_t checkTvUri(const ChannelList& channels, const std::string& uri) {
    const bool broadcast = ov::orveltools::uri::LtUri(uri).getScheme() == "dvb";
    return broadcast && !channels.has(uri) ? result::unknownChannel : result::done;
}

} // namespace services
