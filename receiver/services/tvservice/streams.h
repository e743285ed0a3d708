// The streams of a channel: the same for every channel, except for their addresses, which are derived from the
// channel's URI.
//
// Field meanings of a stream in this service (numbers count from 1; track requests use them):
//   audio     intParam1 number, strParam1 language, strParam2 name, intParam2 coding (1 MPEG, 2 AC-3), intParam3
//             channels, intParam4 sampling rate in Hz, shortParam1 PID, shortParam2 component tag, flagParam1 chosen,
//             flagParam2 describes the picture, strParam3 role, shortParam3 kbit/s, shortParam4 unused, strParam4
//             channel
//   subtitle  intParam1 number, strParam1 language, strParam2 name, intParam2 coding (1 bitmaps, 2 teletext),
//             intParam3 type code, shortParam1 PID, shortParam2 composition page, shortParam3 ancillary page,
//             flagParam1 chosen, flagParam2 for the hard of hearing, strParam3 channel
//   video     intParam1 number, strParam1 name, intParam2 coding (1 MPEG-2, 2 AVC), shortParam1 PID, shortParam2 frames
//             per second, flagParam1 chosen, shortParam3 width, shortParam4 height
//   teletext  intParam1 number, strParam1 language, shortParam1 PID
#pragma once

#include <tvservice/stream-records.h>

#include <cstdint>
#include <string>
#include <vector>

namespace services {

// The three numbers in dvb://NETWORK.STREAM.SERVICE; missing or malformed numbers are 0.
struct ServiceId {
    std::int32_t network = 0;
    std::int32_t stream = 0;
    std::int32_t service = 0;
    bool operator==(const ServiceId&) const = default;
};
ServiceId serviceIdOf(const std::string& channel);

// No stream is marked as chosen.
template <class Stream> std::vector<Stream> streamsOf(const std::string& channel);
template <> std::vector<tvservice::AudioStreamInfo_t> streamsOf(const std::string& channel);
template <> std::vector<tvservice::SubtitleStreamInfo_t> streamsOf(const std::string& channel);
template <> std::vector<tvservice::VideoStreamInfo_t> streamsOf(const std::string& channel);
template <> std::vector<tvservice::TeletextStreamInfo_t> streamsOf(const std::string& channel);

} // namespace services
