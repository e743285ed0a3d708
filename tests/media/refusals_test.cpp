// Plays that a receiver refuses or replaces by others, and pictures that cannot be written.
#include "hostile-server.h"
#include "media/playing-receiver.h"

namespace {

using namespace playing_receiver;
using testing::AllOf;

class ReceiverWithOneTuner : public PlayingReceiver {
protected:
    ReceiverWithOneTuner() {
        environment["TVSA_MEDIA_TUNERS"] = "1";
        addChannel("dvb://other", std::string("file://") + MEDIA_SAMPLES + "/other.ts", 1);
        startAll();
    }
};

TEST_F(ReceiverWithOneTuner, RefusesASecondTransportStreamUntilTheFirstIsStopped) {
    play("0:0", "dvb://one");
    play("1:0", "dvb://two"); // of the same transport stream
    EXPECT_THAT(tvctl({"play", "2:0", "dvb://other"}).error,
                AllOf(HasSubstr("no tuner (16)"), HasSubstr("2:0: no tuner is free: file://"), HasSubstr("/one.ts")));
    EXPECT_TRUE(
        eventually([&] { return tvctl({"notifications"}).output.find("TvServiceConflictInfo") != std::string::npos; }));
    EXPECT_EQ(codeOn("0:0"), "One");
    EXPECT_EQ(tvctl({"stop", "0:0"}).exitCode, 0);
    EXPECT_THAT(tvctl({"play", "2:0", "dvb://other"}).error, HasSubstr("no tuner (16)"));
    EXPECT_EQ(tvctl({"stop", "1:0"}).exitCode, 0);
    play("2:0", "dvb://other");
    EXPECT_EQ(codeOn("2:0"), "Sports");
}

class ReceiverWithAServer : public PlayingReceiver {
protected:
    ReceiverWithAServer() { startAll(); }

    static hostile::Server::Answer answering(const std::string& status) {
        return [status](const hostile::Connection& connection, const std::string&) {
            connection.send("HTTP/1.1 " + status + "\r\nContent-Length: 0\r\n\r\n");
        };
    }
    // The address of a server with TLS whose certificate nobody knows.
    std::string startTlsServer() {
        const std::string key = (folder / "key.pem").string(), certificate = (folder / "certificate.pem").string();
        EXPECT_EQ(run({"/usr/bin/openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-subj", "/CN=localhost",
                       "-keyout", key, "-out", certificate})
                      .exitCode,
                  0);
        const std::string output = (folder / "tls").string();
        tls_ =
            start({"/usr/bin/openssl", "s_server", "-accept", "127.0.0.1:0", "-key", key, "-cert", certificate, "-www"},
                  R"(exec "$0" "$@" </dev/null >')" + output + "'");
        const std::string accepts = "ACCEPT 127.0.0.1:";
        EXPECT_TRUE(eventually([&] { return contentOf(output).find(accepts) != std::string::npos; })) << tls_->error();
        const std::string text = contentOf(output).substr(contentOf(output).find(accepts) + accepts.size());
        return "https://127.0.0.1:" + text.substr(0, text.find('\n')) + "/film.mp4";
    }

private:
    std::unique_ptr<Running> tls_;
};

TEST_F(ReceiverWithAServer, SaysWhatTheServerAnswers) {
    hostile::Server server({{"/gone", answering("404 Not Found")},
                            {"/forbidden", answering("403 Forbidden")},
                            {"/secret", answering("401 Unauthorized")},
                            {"/broken", answering("500 Internal Server Error")}});
    for (const auto& [path, result, reason] : {std::tuple{"/gone", "cannot open file (3)", "0:0: Not Found"},
                                               {"/forbidden", "no permission (12)", "0:0: Forbidden"},
                                               {"/secret", "no permission (12)", "0:0: Unauthorized"},
                                               {"/broken", "no connection (13)", "0:0: Internal Server Error"}})
        EXPECT_THAT(tvctl({"play", "0:0", server.address(path)}).error, AllOf(HasSubstr(result), HasSubstr(reason)));
}

TEST_F(ReceiverWithAServer, RefusesASecureAddressWithoutAKnownCertificate) {
    const std::string address = startTlsServer();
    EXPECT_THAT(tvctl({"play", "0:0", address}).error,
                AllOf(HasSubstr("no connection (13)"), HasSubstr("0:0: " + address + " cannot be reached"),
                      HasSubstr("certificate")));
}

TEST_F(ReceiverWithAServer, WritesAPictureWholeOrNotAtAll) {
    play("0:0", "dvb://one");
    const std::filesystem::path place = folder / "pictures";
    std::filesystem::create_directory(place);
    const std::string picture = (place / "picture.png").string();
    // As on a full disk: files may have no more than a block.
    const std::string limited = R"(trap '' XFSZ; ulimit -f 1; exec "$0" "$@" </dev/null)";
    const Outcome failed = run({program("tvctl"), "screenshot", "0:0", picture}, limited);
    EXPECT_EQ(failed.exitCode, 1);
    EXPECT_THAT(failed.error, HasSubstr(picture + ": File too large"));
    EXPECT_EQ(filesIn(place), std::vector<std::string>{});
    EXPECT_THAT(tvctl({"screenshot", "0:0", "/dev/full"}).error, HasSubstr("/dev/full: No space left on device"));
    std::ofstream(picture) << "former";
    EXPECT_EQ(run({program("tvctl"), "screenshot", "0:0", picture}, limited).exitCode, 1);
    EXPECT_EQ(contentOf(picture), "former");
    EXPECT_EQ(filesIn(place), std::vector<std::string>{"picture.png"});
}

class TwoFrameworkProcesses : public ReceiverWithAServer {
protected:
    TwoFrameworkProcesses() {
        second_ = environment;
        second_["RUNTIME_DIRECTORY"] = (folder / "second").string();
        second_["STATE_DIRECTORY"] = (folder / "second-state").string();
        second_["TVSA_ENDPOINT_TVSERVICE"] = runtimeFolder() + "/tvservice.sock";
        second_["TVSA_ENDPOINT_MMSERVICE"] = runtimeFolder() + "/mmservice.sock";
        change();
        other_ = start({program("frame-host"), "--application", "control"});
        waitForConnections();
        change();
    }
    // tvctl speaks to the other process from now on.
    void change() { std::swap(environment, second_); }

    std::unique_ptr<Running> other_;

private:
    std::map<std::string, std::string> second_;
};

TEST_F(TwoFrameworkProcesses, GetATerminalForWhicheverAsksLast) {
    hostile::Server server(
        {{"/stalls", [](const hostile::Connection& connection, const std::string&) { connection.stall(); }}});
    const auto opening = start({program("tvctl"), "play", "0:0", server.address("/stalls")});
    EXPECT_TRUE(eventually([&] { return server.open() > 0; }));
    change();
    play("0:0", std::string("file://") + MEDIA_SAMPLES + "/one.ts");
    const Outcome replaced = opening->wait();
    EXPECT_EQ(replaced.exitCode, notShown);
    EXPECT_THAT(replaced.error, HasSubstr("superseded (1)"));
    change();
    EXPECT_NE(codeOn("0:0"), "");
    EXPECT_EQ(other_->terminate().exitCode, 0);
    endAll();
}

} // namespace
