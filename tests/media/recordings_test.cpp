// Recordings of broadcasts, which the TV service plays: they have tracks, and an end.
#include "media/playing-receiver.h"

namespace {

using namespace playing_receiver;
using media::Picture;

class ARecording : public PlayingReceiver {
protected:
    ARecording() { startAll(); }

    // Its address, by which it is known as a recording.
    std::string recordingOf(const std::string& sample) const {
        const auto place = folder / "PVR+";
        std::filesystem::create_directories(place);
        std::filesystem::copy_file(std::filesystem::path(MEDIA_SAMPLES) / sample, place / sample);
        return "file://" + (place / sample).string();
    }
    void choose(const std::string& kind, int number) const {
        const Outcome outcome = tvctl({kind, "0:0", std::to_string(number)});
        EXPECT_EQ(outcome.exitCode, 0) << outcome.error;
    }
    bool reportsItsEnd() const {
        return eventually([&] {
            return tvctl({"notifications"}).output.find("rec://plain/null") != std::string::npos &&
                   json::parse(tvctl({"--target", "tvserviced", "terminals", "--json"}).output).empty();
        });
    }
};

TEST_F(ARecording, IsHeardInTheChosenLanguage) {
    play("0:0", recordingOf("recording.ts"));
    EXPECT_EQ(codeOn("0:0"), "One");
    EXPECT_TRUE(sounds("0:0", 440));
    choose("audio", 2);
    EXPECT_TRUE(sounds("0:0", 660));
}

TEST_F(ARecording, ShowsTheChosenSubtitles) {
    play("0:0", recordingOf("recording.ts"));
    choose("subtitle", 1);
    EXPECT_TRUE(eventually([&] {
        constexpr int x = 165, y = 443;
        return pictureOn("0:0").shows(Picture::yellow, x, y);
    }));
}

TEST_F(ARecording, EndsAlsoWhenAllItsTextsAreShown) {
    const std::string recording = recordingOf("one.ts");
    play("0:0", recording);
    choose("teletext", 1);
    choose("subtitle", 2);
    EXPECT_TRUE(reportsItsEnd()) << tvService_->error();
    play("0:0", recording);
    choose("subtitle", 3);
    EXPECT_TRUE(reportsItsEnd()) << tvService_->error();
}

TEST_F(ARecording, IsPlayedInWhateverFormatItIs) {
    const std::filesystem::path file = folder / "PVR+" / "film.webm";
    std::filesystem::create_directories(file.parent_path());
    ASSERT_EQ(run({"gst-launch-1.0", "-q", "videotestsrc", "num-buffers=10", "!", "jpegenc", "!", "matroskamux", "!",
                   "filesink", "location=" + file.string()})
                  .exitCode,
              0);
    play("0:0", "file://" + file.string());
    EXPECT_TRUE(reportsItsEnd()) << tvService_->error();
}

} // namespace
