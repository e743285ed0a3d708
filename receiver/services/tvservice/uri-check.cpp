#include "tvservice/uri-check.h"

#include <ov/uri.h>
#include <tvservice-adapter/service/result.h>

namespace services {

std::int32_t checkTvUri(const ChannelList& channels, const std::string& uri) {
    namespace Scheme = ov::orveltools::uri::Scheme;
    const std::string scheme = ov::orveltools::uri::LtUri(uri).getScheme();
    if (scheme == "dvb") return channels.has(uri) ? result::done : result::unknownChannel;
    const bool isNamed = uri.find_first_not_of('/', scheme.size() + 1) != std::string::npos; // the input or recording
    const bool isShown =
        isNamed && (scheme == "rec" || scheme == "hdmi" || scheme == Scheme::File || scheme == Scheme::Fsl2);
    return isShown ? result::done : result::unsupportedUri;
}

} // namespace services
