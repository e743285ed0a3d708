// What a display shows: windows with the terminals' pictures, on an X server without a screen.
#include "media/playing-receiver.h"

namespace {

using namespace playing_receiver;

class AReceiverWithADisplay : public PlayingReceiver {
protected:
    AReceiverWithADisplay() { startDisplay(); }

    void startDisplay() {
        std::filesystem::remove(number());
        const std::string script = R"(exec "$0" "$@" </dev/null >"$OUTPUT" 3>")" + number() + '"';
        display_ =
            start({"/usr/bin/Xvfb", "-displayfd", "3", "-screen", "0", "1600x900x24", "-nolisten", "tcp"}, script);
        EXPECT_TRUE(eventually([&] { return contentOf(number()).ends_with('\n'); })) << display_->error();
        const std::string name = contentOf(number());
        environment["DISPLAY"] = ":" + name.substr(0, name.find('\n'));
        environment.erase("WAYLAND_DISPLAY");
    }

    // As when it crashes.
    void killDisplay() const { display_->terminate(SIGKILL); }

    // The texts of all QR codes on the display, in order. Enlarged, as those in small pictures cannot be read.
    std::vector<std::string> codes() const {
        const std::string picture = (folder / "display.png").string();
        EXPECT_EQ(run({"gst-launch-1.0", "-q", "ximagesrc", "num-buffers=1", "use-damage=false", "!", "videoconvert",
                       "!", "videoscale", "method=lanczos", "!", "video/x-raw,width=3200,height=1800", "!", "pngenc",
                       "!", "filesink", "location=" + picture})
                      .exitCode,
                  0);
        std::istringstream found(run({"zbarimg", "--quiet", "--raw", picture}).output);
        std::vector<std::string> all;
        for (std::string code; std::getline(found, code);) all.push_back(code);
        std::ranges::sort(all);
        return all;
    }
    bool shows(const std::vector<std::string>& expected) const {
        return eventually([&] { return codes() == expected; });
    }

private:
    std::string number() const { return (folder / "display").string(); }

    std::unique_ptr<Running> display_;
};

TEST_F(AReceiverWithADisplay, ShowsATerminalInAWindowUntilItIsStopped) {
    environment["TVSA_MEDIA_OUTPUT"] = "auto";
    startAll();
    play("0:0", "dvb://one");
    EXPECT_TRUE(shows({"One"}));
    play("0:0", "dvb://two");
    EXPECT_TRUE(shows({"Two"}));
    EXPECT_EQ(tvctl({"stop", "0:0"}).exitCode, 0);
    EXPECT_TRUE(shows({}));
}

TEST_F(AReceiverWithADisplay, ShowsSmallPicturesInTheMainTerminalsOnOneScreen) {
    for (const char* const layout : {"screen", "fullscreen"}) {
        environment["TVSA_MEDIA_OUTPUT"] = layout;
        startAll();
        play("0:0", "dvb://news");
        EXPECT_TRUE(shows({"News"})) << layout;
        play("1:0", "dvb://two");
        EXPECT_TRUE(shows({"News", "Two"})) << layout;
        EXPECT_EQ(tvctl({"stop", "0:0"}).exitCode, 0);
        EXPECT_TRUE(shows({"Two"})) << layout;
        endAll();
    }
}

TEST_F(AReceiverWithADisplay, PlaysWithoutADisplayThatIsGone) {
    environment["DISPLAY"] = ":9999";
    environment["TVSA_MEDIA_OUTPUT"] = "windows";
    startAll();
    play("0:0", "dvb://one");
    EXPECT_EQ(codeOn("0:0"), "One");
    EXPECT_THAT(tvService_->error(), HasSubstr("pictures are not seen: no connection to the display"));
}

TEST_F(AReceiverWithADisplay, PlaysWithoutAWaylandDisplayThatIsNotThere) {
    environment["WAYLAND_DISPLAY"] = "nowhere";
    environment["TVSA_MEDIA_OUTPUT"] = "windows";
    startAll();
    play("0:0", "dvb://one");
    EXPECT_EQ(codeOn("0:0"), "One");
    EXPECT_THAT(tvService_->error(), HasSubstr("pictures are not seen: the display cannot be used"));
}

TEST_F(AReceiverWithADisplay, GoesOnWithoutADisplayThatIsLost) {
    for (const char* const layout : {"windows", "screen"}) {
        startDisplay();
        environment["TVSA_MEDIA_OUTPUT"] = layout;
        startAll();
        play("0:0", "dvb://one");
        EXPECT_TRUE(shows({"One"})) << layout;
        play("1:0", "dvb://two");
        killDisplay();
        const std::string sentence = "the display is lost: pictures are not seen until the service is restarted";
        EXPECT_TRUE(eventually([&] { return tvService_->error().find(sentence) != std::string::npos; }))
            << layout << tvService_->error();
        play("0:0", "dvb://news");
        EXPECT_EQ(codeOn("0:0"), "News") << layout;
        EXPECT_EQ(codeOn("1:0"), "Two") << layout;
        EXPECT_EQ(tvctl({"stop", "1:0"}).exitCode, 0) << layout;
        play("2:0", "dvb://two");
        EXPECT_EQ(tvService_->error().find(sentence), tvService_->error().rfind(sentence)) << "said once";
        endAll();
    }
}

} // namespace
