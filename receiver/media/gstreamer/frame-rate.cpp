#include "frame-rate.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace media {

void FrameRate::take(GstClockTime time) {
    if (!GST_CLOCK_TIME_IS_VALID(time) || intervals_.size() == enough) return;
    const GstClockTime last = std::exchange(last_, time);
    if (GST_CLOCK_TIME_IS_VALID(last) && time > last) intervals_.push_back(time - last);
}

// The median: pictures may be lost.
std::int32_t FrameRate::perSecond() const {
    if (intervals_.size() < enough) return 0;
    std::vector<GstClockTime> sorted = intervals_;
    const auto middle = sorted.begin() + enough / 2;
    std::nth_element(sorted.begin(), middle, sorted.end());
    return static_cast<std::int32_t>(std::lround(double{GST_SECOND} / static_cast<double>(*middle)));
}

} // namespace media
