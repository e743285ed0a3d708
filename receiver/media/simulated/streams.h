// The streams of a channel: the same for every channel, except for their addresses, which are derived from the
// channel's URI.
#pragma once

#include <tvservice/stream-records.h>

#include <cstdint>
#include <string>
#include <vector>

namespace media {

// No stream is marked as chosen.
template <class Stream> std::vector<Stream> streamsOf(const std::string& channel);
template <> std::vector<tvservice::AudioStreamInfo_t> streamsOf(const std::string& channel);
template <> std::vector<tvservice::SubtitleStreamInfo_t> streamsOf(const std::string& channel);
template <> std::vector<tvservice::VideoStreamInfo_t> streamsOf(const std::string& channel);
template <> std::vector<tvservice::TeletextStreamInfo_t> streamsOf(const std::string& channel);

} // namespace media
