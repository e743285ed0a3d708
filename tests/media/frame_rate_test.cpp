#include "media/gstreamer/frame-rate.h"

#include <gtest/gtest.h>

namespace {

using namespace media;

class AFrameRate : public testing::Test {
protected:
    void takePictures(int count, GstClockTime interval) {
        for (int i = 0; i < count; ++i) rate.take(time += interval);
    }

    FrameRate rate;
    GstClockTime time = GST_SECOND;
};

TEST_F(AFrameRate, IsKnownAfterSomePictures) {
    takePictures(9, GST_SECOND / 25);
    EXPECT_EQ(rate.perSecond(), 0);
    takePictures(1, GST_SECOND / 25);
    EXPECT_EQ(rate.perSecond(), 25);
}

TEST_F(AFrameRate, IsRounded) {
    takePictures(10, GST_SECOND * 1001 / 60'000);
    EXPECT_EQ(rate.perSecond(), 60);
}

TEST_F(AFrameRate, IsThatOfMostPicturesWhenSomeAreLostOrHaveNoTime) {
    takePictures(4, GST_SECOND / 50);
    takePictures(2, GST_SECOND);
    rate.take(GST_CLOCK_TIME_NONE);
    rate.take(time);
    takePictures(5, GST_SECOND / 50);
    EXPECT_EQ(rate.perSecond(), 50);
}

} // namespace
