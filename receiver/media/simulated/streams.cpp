#include "streams.h"

#include <tvservice/values.h>

#include <media/service-id.h>

namespace media {

namespace {

// The PIDs of a channel's streams are close together, apart from those of other channels. A PID has 13 bits.
std::uint16_t pidOf(const std::string& channel, std::uint32_t offset) {
    const auto service = static_cast<std::uint32_t>(serviceIdOf(channel).service);
    return static_cast<std::uint16_t>((service * 0x100 + offset) & 0x1FFF);
}

} // namespace

template <> std::vector<tvservice::AudioStreamInfo_t> streamsOf(const std::string& channel) {
    using namespace tvservice::audioCoding;
    return {
        {1, "eng", "English", mpeg, 2, 48000, pidOf(channel, 0x10), 0x10, false, false, "main", 192, 0, channel},
        {2, "eng", "English surround", ac3, 6, 48000, pidOf(channel, 0x11), 0x11, false, false, "main", 448, 0,
         channel},
        {3, "eng", "Description", mpeg, 2, 48000, pidOf(channel, 0x12), 0x12, false, true, "description", 128, 0,
         channel},
        {4, "fra", "French", mpeg, 2, 48000, pidOf(channel, 0x13), 0x13, false, false, "main", 192, 0, channel},
    };
}

template <> std::vector<tvservice::SubtitleStreamInfo_t> streamsOf(const std::string& channel) {
    using namespace tvservice::subtitleCoding;
    return {
        {1, "eng", "English", bitmaps, 0x10, pidOf(channel, 0x20), 1, 1, false, false, channel},
        {2, "eng", "Hard of hearing", bitmaps, 0x20, pidOf(channel, 0x21), 2, 2, false, true, channel},
        {3, "fra", "French", teletext, 0x02, pidOf(channel, 0x30), 0x888, 0, false, false, channel},
    };
}

template <> std::vector<tvservice::VideoStreamInfo_t> streamsOf(const std::string& channel) {
    using namespace tvservice::videoCoding;
    return {
        {1, "Main picture", avc, pidOf(channel, 0x00), 50, false, 1920, 1080},
        {2, "Second camera", mpeg2, pidOf(channel, 0x01), 25, false, 720, 576},
    };
}

template <> std::vector<tvservice::TeletextStreamInfo_t> streamsOf(const std::string& channel) {
    return {{1, "eng", pidOf(channel, 0x30)}, {2, "fra", pidOf(channel, 0x31)}};
}

} // namespace media
