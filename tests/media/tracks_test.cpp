// What is seen when a track is chosen.
#include "media/playing-receiver.h"

namespace {

using namespace playing_receiver;
using media::Picture;

// The number of pixels of about a colour in a part of a picture.
struct Area {
    int left, top, right, bottom;
};
int countOf(const Picture::Colour& colour, const Picture& picture, const Area& area) {
    int count = 0;
    for (int y = area.top; y < area.bottom; ++y)
        for (int x = area.left; x < area.right; ++x) count += picture.shows(colour, x, y);
    return count;
}

class AReceiverThatShowsTracks : public PlayingReceiver {
protected:
    AReceiverThatShowsTracks() { startAll(); }

    void choose(const std::string& kind, int number) const {
        const Outcome outcome = tvctl({kind, "0:0", std::to_string(number)});
        EXPECT_EQ(outcome.exitCode, 0) << outcome.error;
    }
    // Of the bar of subtitles on the channel dvb://one.
    std::string bar() const {
        constexpr int x = 165, y = 443;
        const Picture picture = pictureOn("0:0");
        return picture.shows(Picture::yellow, x, y) ? "yellow" : picture.shows(Picture::cyan, x, y) ? "cyan" : "none";
    }
    bool showsBar(const std::string& expected) const {
        return eventually([&] { return bar() == expected; });
    }
    // Of subtitles in teletext: white, where nothing else in the picture is.
    bool showsText(bool expected) const {
        constexpr Area place{210, 400, 510, 570};
        constexpr int least = 100;
        return eventually([&] { return (countOf(Picture::white, pictureOn("0:0"), place) > least) == expected; });
    }
};

TEST_F(AReceiverThatShowsTracks, DrawsTheChosenSubtitlesIntoThePicture) {
    play("0:0", "dvb://one");
    choose("subtitle", 1);
    EXPECT_TRUE(showsBar("yellow"));
    choose("subtitle", 2);
    EXPECT_TRUE(showsBar("cyan"));
    choose("subtitle", 0);
    EXPECT_TRUE(showsBar("none"));
}

// A subtitle is shown for 1.6 s. On a busy machine, some attempts come too late to see more than its end.
TEST_F(AReceiverThatShowsTracks, HidesTheSubtitleOfALanguageWhenAnotherOneIsChosen) {
    constexpr std::chrono::milliseconds soon{800};
    play("0:0", "dvb://one");
    bool wasHidden = false;
    for (int attempt = 0; attempt < 10 && !wasHidden; ++attempt) {
        choose("subtitle", 1);
        ASSERT_TRUE(showsBar("none"));
        ASSERT_TRUE(showsBar("yellow"));
        const auto seen = std::chrono::steady_clock::now();
        choose("subtitle", 2);
        while (bar() == "yellow" && std::chrono::steady_clock::now() - seen < soon) {
        }
        wasHidden = std::chrono::steady_clock::now() - seen < soon;
        ASSERT_TRUE(showsBar("cyan"));
    }
    EXPECT_TRUE(wasHidden);
}

TEST_F(AReceiverThatShowsTracks, DrawsTheSubtitlesOfItsTeletextIntoThePicture) {
    play("0:0", "dvb://one");
    EXPECT_TRUE(showsText(false));
    choose("subtitle", 3);
    EXPECT_TRUE(showsText(true));
    EXPECT_TRUE(showsText(false)) << "a subtitle ends before the next one";
    EXPECT_TRUE(showsText(true));
    EXPECT_EQ(codeOn("0:0"), "One");
    choose("subtitle", 1);
    EXPECT_TRUE(showsBar("yellow"));
    EXPECT_TRUE(showsText(false));
}

// H.264 need not say how many pictures there are in a second.
TEST_F(AReceiverThatShowsTracks, KnowsTheSizeAndTheRateOfPicturesInEachCoding) {
    const auto formatOf = [this](int type) {
        std::vector<int> format;
        for (const json& each : json::parse(tvctl({"notifications", "--json"}).output)) {
            if (each.at("message") != "TvServiceVideoInfo") continue;
            const json& info = each.at("arguments").at("info");
            if (info.at("terminal").at("type") != type || info.at("streams").empty()) continue;
            const json& stream = info.at("streams").at(0);
            format = {stream.at("shortParam3"), stream.at("shortParam4"), stream.at("shortParam2")};
        }
        return format;
    };
    const std::vector<int> one{720, 576, 25}, two{352, 288, 25};
    play("0:0", "dvb://one");
    play("1:0", "dvb://two");
    EXPECT_TRUE(eventually([&] { return formatOf(0) == one; })) << testing::PrintToString(formatOf(0));
    EXPECT_TRUE(eventually([&] { return formatOf(1) == two; })) << testing::PrintToString(formatOf(1));
}

TEST_F(AReceiverThatShowsTracks, CoversThePictureByAPageOfTeletext) {
    play("0:0", "dvb://one");
    const int width = pictureOn("0:0").width();
    choose("teletext", 1);
    EXPECT_TRUE(eventually([&] { return pictureOn("0:0").width() != width; }));
    const Picture page = pictureOn("0:0");
    const Area all{0, 0, page.width(), page.height()}, name{0, 20, page.width(), 40};
    EXPECT_GT(countOf(Picture::black, page, all), page.width() * page.height() / 2);
    EXPECT_GT(countOf(Picture::yellow, page, name) + countOf(Picture::cyan, page, name), 100);
    EXPECT_TRUE(sounds("0:0", 440));
    choose("teletext", 0);
    EXPECT_TRUE(eventually([&] { return codeOn("0:0") == "One"; }));
}

} // namespace
