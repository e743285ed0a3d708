#include "media/gstreamer/glib-pointers.h"
#include "media/gstreamer/sound-meter.h"

#include <cmath>
#include <gtest/gtest.h>

namespace {

using namespace media;
using namespace std::chrono_literals;

class ASoundMeter : public testing::Test {
protected:
    ASoundMeter() { gst_init(nullptr, nullptr); }

    // Half as loud as possible.
    void takeTone(int pitch, std::chrono::milliseconds length, SoundMeter::Time now) {
        std::vector<std::int16_t> samples;
        for (std::int32_t i = 0; i < SoundMeter::rate / 1000 * length.count(); ++i)
            samples.insert(samples.end(), 2,
                           static_cast<std::int16_t>(0x3FFF * std::sin(2 * M_PI * pitch * i / SoundMeter::rate)));
        GstBuffer* const buffer = gst_buffer_new_memdup(samples.data(), samples.size() * sizeof samples[0]);
        meter.take(buffer, now);
        gst_buffer_unref(buffer);
    }

    SoundMeter meter;
    const SoundMeter::Time start{1h};
};

TEST_F(ASoundMeter, KnowsTheLevelAndThePitchOfATone) {
    takeTone(440, 100ms, start);
    const Sound sound = meter.sound(start);
    EXPECT_EQ(sound.pitch, 440);
    EXPECT_NEAR(sound.level, -9, 0.1);
}

TEST_F(ASoundMeter, HearsNothingBeforeTheFirstSound) { EXPECT_EQ(meter.sound(start).pitch, 0); }

TEST_F(ASoundMeter, HearsNothingWhenNothingMoreComesToBePlayed) {
    takeTone(440, 100ms, start);
    EXPECT_EQ(meter.sound(start + 399ms).pitch, 440);
    EXPECT_EQ(meter.sound(start + 400ms).pitch, 0);
    EXPECT_EQ(meter.sound(start + 400ms).level, -100);
    takeTone(660, 300ms, start + 1s);
    EXPECT_EQ(meter.sound(start + 1s).pitch, 660) << "the former tone is forgotten";
}

TEST_F(ASoundMeter, HearsABufferAsLongAsItIsPlayed) {
    takeTone(440, 2s, start);
    EXPECT_EQ(meter.sound(start + 2s).pitch, 440);
    EXPECT_EQ(meter.sound(start + 2300ms).pitch, 0);
}

} // namespace
