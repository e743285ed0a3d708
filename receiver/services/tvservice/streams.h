// The streams of a channel: the same for every channel, except for their addresses, which are derived from the
// channel's URI.
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
