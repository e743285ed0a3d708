// How many pictures there are in a second, measured: some streams do not say.
#pragma once

#include <cstdint>
#include <gst/gst.h>
#include <vector>

namespace media {

class FrameRate {
public:
    // The time at which the next picture is shown; GST_CLOCK_TIME_NONE: not known.
    void take(GstClockTime time);
    std::int32_t perSecond() const; // 0: not known yet

private:
    static constexpr std::size_t enough = 9;
    GstClockTime last_ = GST_CLOCK_TIME_NONE;
    std::vector<GstClockTime> intervals_; // at most `enough`
};

} // namespace media
