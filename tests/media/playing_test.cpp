// A receiver whose services really play, and what is then seen and heard.
#include "media/playing-receiver.h"

namespace {

using namespace playing_receiver;

class AReceiverThatPlays : public PlayingReceiver {
protected:
    AReceiverThatPlays() {
        addChannel("dvb://no-host", "udp://no-such-host.invalid:39116", 1);
        addChannel("dvb://adapter", "dvb-adapter://0?frequency=474000000&delsys=dvb-t", 1);
        startAll();
    }
};

TEST_F(AReceiverThatPlays, ShowsEachChannelOnItsTerminalAndNowhereElse) {
    play("0:0", "dvb://one");
    play("1:0", "dvb://two");
    play("2:0", "dvb://news");
    EXPECT_EQ(codeOn("0:0"), "One");
    EXPECT_EQ(codeOn("1:0"), "Two");
    EXPECT_EQ(codeOn("2:0"), "News");
    play("0:0", "dvb://news");
    EXPECT_EQ(codeOn("0:0"), "News");
    EXPECT_EQ(codeOn("1:0"), "Two");
}

TEST_F(AReceiverThatPlays, PlaysTheChosenSound) {
    play("0:0", "dvb://one");
    EXPECT_TRUE(sounds("0:0", 440));
    EXPECT_EQ(tvctl({"audio", "0:0", "2"}).exitCode, 0);
    EXPECT_TRUE(sounds("0:0", 660));
    EXPECT_EQ(tvctl({"audio", "0:0", "1"}).exitCode, 0);
    EXPECT_TRUE(sounds("0:0", 440));
    EXPECT_EQ(tvctl({"audio", "0:0", "0"}).exitCode, 0);
    EXPECT_TRUE(sounds("0:0", 0));
    EXPECT_EQ(codeOn("0:0"), "One") << "the picture goes on";
}

TEST_F(AReceiverThatPlays, IsDarkAndSilentAfterAStop) {
    play("0:0", "dvb://one");
    EXPECT_EQ(tvctl({"stop", "0:0"}).exitCode, 0);
    for (const Words& words : {Words{"level", "0:0"}, Words{"screenshot", "0:0", (folder / "none.png").string()}})
        EXPECT_EQ(tvctl(words), (Outcome{1, "", "tvctl: the terminal shows nothing\n"}));
    EXPECT_FALSE(std::filesystem::exists(folder / "none.png"));
}

TEST_F(AReceiverThatPlays, SaysWhyAChannelCannotBeShown) {
    for (const auto& [uri, result, reason] :
         {std::tuple{"dvb://no-program", "no such program", "0:0: program 9 is not among those of file://"},
          {"dvb://no-program", "no such program", "one.ts: 1"},
          {"dvb://no-file", "cannot open file", "0:0: Resource not found"},
          {"dvb://no-stream", "not media", "0:0: the file is no transport stream"},
          {"dvb://no-host", "no connection", "0:0: udp://no-such-host.invalid:39116 cannot be received"},
          {"dvb://no-source", "no source", "0:0: the channel list names no source of dvb://no-source"}}) {
        const Outcome outcome = tvctl({"play", "0:0", uri});
        EXPECT_EQ(outcome.exitCode, notShown) << uri;
        EXPECT_THAT(outcome.error, HasSubstr(result)) << uri;
        EXPECT_THAT(outcome.error, HasSubstr(reason)) << uri;
    }
    EXPECT_THAT(tvctl({"play", "0:0,1:0", "dvb://no-source", "--json"}).output,
                testing::AllOf(HasSubstr(R"("reason":"the channel list names no source of dvb://no-source")"),
                               HasSubstr("1:0: the channel list")));
}

TEST_F(AReceiverThatPlays, LogsWhatIsWrongAtTheBuiltInLevel) {
    tvService_->terminate();
    environment.erase("TVSA_LOG");
    environment["TVSA_MEDIA_OUTPUT"] = "auto";
    environment["DISPLAY"] = environment["WAYLAND_DISPLAY"] = "";
    environment["PULSE_SERVER"] = "unix:/nowhere";
    environment["XDG_RUNTIME_DIR"] = folder.string();
    startTvService();
    waitForConnections();
    tvctl({"play", "0:0", "dvb://no-program"});
    const std::string log = tvService_->error();
    EXPECT_THAT(log, HasSubstr("service warning: no display"));
    EXPECT_THAT(log, HasSubstr("service warning: terminal 0:0: dvb://no-program: no such program: program 9 is not"));
    if (!std::filesystem::exists("/dev/snd")) {
        EXPECT_THAT(log, HasSubstr("service warning: no sound card"));
    }
    std::istringstream lines(log);
    for (std::string line; std::getline(lines, line);)
        EXPECT_THAT(line, testing::AnyOf(HasSubstr(" tvserviced["), testing::StartsWith("tvserviced: ")))
            << "a library's";
}

TEST_F(AReceiverThatPlays, SaysWhyAFileCannotBePlayed) {
    std::ofstream(folder / "text.mp4") << "not a film\n";
    std::ofstream(folder / "empty.mp4") << "";
    for (const char* file : {"text.mp4", "empty.mp4"}) {
        const Outcome outcome = tvctl({"play", "0:0", "file://" + (folder / file).string()});
        EXPECT_EQ(outcome.exitCode, notShown) << file;
        EXPECT_THAT(outcome.error, HasSubstr("not media")) << file;
    }
    for (const std::string uri : {"http://127.0.0.1:1/film.mp4", "http://no-such-host.invalid/film.mp4"})
        EXPECT_THAT(tvctl({"play", "0:0", uri}).error,
                    testing::AllOf(HasSubstr("no connection"), HasSubstr("0:0: " + uri + " cannot be reached")));
}

TEST_F(AReceiverThatPlays, AnswersForAFileWhenItsFirstPictureIsThere) {
    for (int i = 0; i < 10; ++i) {
        play("0:0", std::string("file://") + MEDIA_SAMPLES + "/one.ts");
        EXPECT_NE(codeOn("0:0"), "");
    }
}

TEST_F(AReceiverThatPlays, PlaysAFileWithoutPictures) {
    const std::string file = (folder / "tone.wav").string();
    ASSERT_EQ(run({"gst-launch-1.0", "-q", "audiotestsrc", "num-buffers=200", "freq=500", "!", "wavenc", "!",
                   "filesink", "location=" + file})
                  .exitCode,
              0);
    play("0:0", "file://" + file);
    EXPECT_TRUE(sounds("0:0", 500));
}

TEST_F(AReceiverThatPlays, PlaysAFileAndReportsItsEnd) {
    play("0:0", std::string("file://") + MEDIA_SAMPLES + "/second.ts");
    EXPECT_TRUE(eventually([&] {
        return tvctl({"notifications"}).output.find("rec://plain/null") != std::string::npos &&
               json::parse(tvctl({"--target", "mmserviced", "terminals", "--json"}).output).empty();
    })) << mmService_->error();
}

TEST_F(AReceiverThatPlays, RefusesMoreSourcesThanItHasRoomFor) {
    for (int i = 0; i < 16; ++i) play(std::to_string(i) + ":1", "dvb://one");
    EXPECT_THAT(tvctl({"play", "16:1", "dvb://one"}).error, HasSubstr("no room")) << tvService_->error();
    EXPECT_EQ(tvctl({"stop", "3:1"}).exitCode, 0);
    play("16:1", "dvb://two");
}

TEST_F(AReceiverThatPlays, EndsWhileItPlays) {
    play("0:0", "dvb://one");
    play("1:0", std::string("file://") + MEDIA_SAMPLES + "/one.ts");
    endAll();
}

TEST_F(AReceiverThatPlays, NamesThePackageOfAMissingPlugin) {
    mmService_->terminate();
    tvService_->terminate();
    // What receives a transport stream, but nothing that decodes one: that is noticed only when streams are found.
    for (const char* const plugin : {"coreelements", "app", "mpegtsdemux"}) {
        const std::string file = std::string("libgst") + plugin + ".so";
        std::filesystem::create_symlink(std::filesystem::path(GSTREAMER_PLUGINS) / file, folder / file);
    }
    environment["GST_PLUGIN_SYSTEM_PATH_1_0"] = environment["GST_PLUGIN_PATH_1_0"] = folder.string();
    environment["GST_REGISTRY_1_0"] = (folder / "registry").string();
    startTvService();
    mmService_ = start({program("mmserviced")});
    waitForConnections();
    EXPECT_THAT(tvctl({"play", "0:0", "dvb://one"}).error, HasSubstr("codec missing"));
    EXPECT_THAT(tvService_->error(), HasSubstr("no element decodebin; install gstreamer1.0-plugins-base"));
    EXPECT_THAT(
        tvctl({"play", "0:0", "dvb://adapter"}).error,
        testing::AllOf(HasSubstr("codec missing"), HasSubstr("no element dvbsrc; install gstreamer1.0-plugins-bad")));
    EXPECT_THAT(tvctl({"play", "0:0", std::string("file://") + MEDIA_SAMPLES + "/one.ts"}).error,
                HasSubstr("codec missing"));
}

// What is not answered within 5 s is given up; a newer request need not wait for it.
TEST_F(AReceiverThatPlays, GivesUpASourceThatNeverDeliversAndPlaysTheNext) {
    EXPECT_EQ(tvctl({"play", "0:0", "dvb://silent"}).exitCode, givenUp);
    play("0:0", "dvb://two");
    EXPECT_EQ(codeOn("0:0"), "Two");
}

TEST_F(AReceiverThatPlays, PlaysAgainWhenTheTvServiceWasKilled) {
    play("0:0", "dvb://one");
    tvService_->terminate(SIGKILL);
    startTvService();
    waitForConnections();
    play("0:0", "dvb://two");
    EXPECT_EQ(codeOn("0:0"), "Two");
}

} // namespace
