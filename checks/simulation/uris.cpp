#include "uris.h"

#include <cstdlib>
#include <unordered_map>

namespace simulation {

const Uri uris[] = {
    {"rec://plain/null", Source::Stop},
    {"file:///media/disk/PVR+/0001.ts", Source::Recording},
    {"fsl2://disk/PVR+/2", Source::Recording},
    {"file:///Video USB REC/0002.ts", Source::Recording},
    {"fsl2://disk/a/Video USB REC/b", Source::Recording},
    {"file:///media/disk/PVR+/0001.cache", Source::CachedRecording},
    {"fsl2://disk/Video USB REC/.cache/PVR+/3", Source::CachedRecording},
    {"file:///media/disk/film.mp4", Source::File},
    {"fsl2://disk/film.cache", Source::File},
    {"FILE:///media/disk/pvr+/1.ts", Source::File},
    {"fsl2://disk/Video USB REC", Source::File},
    {"file:", Source::File},
    {"http://media.example/1.m3u8", Source::Network},
    {"HTTPS://media.example/PVR+/2.m3u8", Source::Network},
    {"miracast://source/1", Source::Network},
    {"external:9", Source::Network},
    {"youtube://watch?v=1", Source::Network},
    {"youtubev4://watch?v=2", Source::Network},
    {"rtp://239.0.0.1:5004", Source::Network},
    {"dvb://8468.1537.28225", Source::Live},
    {"hdmi:1", Source::Live},
    {"", Source::Live},
    {"file", Source::Live},
    {"rec://plain/PVR+/1", Source::Live},
    {"httpx://media.example", Source::Live},
    {"youtubev://watch", Source::Live},
    {"1http://media.example", Source::Live},
    {" http://media.example", Source::Live},
    {"REC://PLAIN/NULL", Source::Live},
    {"rec://plain/nul", Source::Live},
    {"rec://plain/null/1", Source::LiveWithStopInside},
    {"dvb://1.2.3?then=rec://plain/null", Source::LiveWithStopInside},
};
const std::size_t uriCount = std::size(uris);

Source sourceOf(const std::string& uri) {
    static const auto sources = [] {
        std::unordered_map<std::string, Source> made;
        for (const Uri& known : uris) made.emplace(known.text, known.source);
        return made;
    }();
    return sources.at(uri);
}

} // namespace simulation
