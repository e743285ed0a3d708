// Which service plays a URI.
#pragma once

#include <ov/uri.h>

#include <string>

namespace tvservice::destination {

// A URI of a local path. The TV service plays it if it is a recording, else the MM service.
inline bool isLocal(const std::string& scheme) {
    namespace Scheme = ov::orveltools::uri::Scheme;
    return scheme == Scheme::File || scheme == Scheme::Fsl2;
}

// Whether a local path is that of a recording.
inline bool isRecording(const std::string& uri) {
    const auto contains = [&](const char* part) { return uri.find(part) != std::string::npos; };
    return (contains("PVR+") || contains("/Video USB REC/")) && !contains(".cache");
}

// A URI that the MM service plays, besides local paths.
inline bool isStream(const std::string& scheme) {
    namespace Scheme = ov::orveltools::uri::Scheme;
    return scheme == Scheme::Http || scheme == Scheme::Https || scheme == Scheme::Miracast ||
           scheme == Scheme::External || scheme == Scheme::YouTube || scheme == Scheme::YouTubeV4 ||
           scheme == Scheme::Rtp;
}

// The MM service plays it after both services have stopped on the terminal. Everything else goes to the TV service,
// which changes what it shows by itself.
inline bool isForMmService(const std::string& uri) {
    const std::string scheme = ov::orveltools::uri::LtUri(uri).getScheme();
    return isLocal(scheme) ? !isRecording(uri) : isStream(scheme);
}

} // namespace tvservice::destination
