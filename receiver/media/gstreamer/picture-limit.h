// Refuses pictures that are too large before a decoder takes memory for them: a small file may claim any size.
#pragma once

#include <cstdint>
#include <functional>
#include <gst/gst.h>
#include <string>

namespace media {

// The largest size that televisions decode: level 5.1 of H.264 and level 5.2 of HEVC have no larger frames.
inline constexpr std::int64_t mostWidth = 4096, mostHeight = 2304, mostPixels = mostWidth * mostHeight;

// Why pictures of a format are refused; empty if they are not, or have no size.
std::string whyTooLarge(const GstStructure& format);

// Watches all decoders that a pipeline gets from now on. Of pictures that are too large, or whose size cannot be known
// before they are decoded, they get nothing; refuse is called on threads of the pipeline, possibly several times.
void limitPictures(GstElement* pipeline, std::function<void(const std::string& reason)> refuse);

} // namespace media
