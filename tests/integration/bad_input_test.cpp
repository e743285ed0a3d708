// A whole receiver with bad input: from a peer on a socket and from users of a shell.
#include "support/queue-fixture.h"

#include <tvservice/messages.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iostream>
#include <kit/receiver-kit.h>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

using namespace receiver;
using nlohmann::json;
using queue_test::frameOf;
using queue_test::words;
using testing::HasSubstr;
namespace messages = tvservice::messages;

// A TV service that sends whatever a test wants, to one client at a time.
class HandMadeTvService {
public:
    HandMadeTvService(const std::string& path, std::string hello) : hello_(std::move(hello)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        const timeval limit{10, 0};
        setsockopt(listener_, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
        if (bind(listener_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 || listen(listener_, 1) != 0)
            throw ReceiverError(path + ": " + std::strerror(errno));
    }
    ~HandMadeTvService() {
        close(client_);
        close(listener_);
    }

    // Accepts the next client and answers its hello.
    void acceptClient() {
        close(client_);
        client_ = accept(listener_, nullptr, nullptr);
        if (client_ < 0) throw ReceiverError(std::string("no client connected: ") + std::strerror(errno));
        send(hello_);
    }
    void send(const std::string& bytes) const {
        EXPECT_EQ(::send(client_, bytes.data(), bytes.size(), MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size()));
    }

    HandMadeTvService(const HandMadeTvService&) = delete;
    HandMadeTvService& operator=(const HandMadeTvService&) = delete;

private:
    const std::string hello_;
    const int listener_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    int client_ = -1;
};

class ReceiverWithBadInput : public testing::Test {
protected:
    void TearDown() override {
        EXPECT_EQ(kit.stop(), "");
        if (HasFailure()) std::cerr << kit.logTails(30);
    }

    json tvConnection() {
        for (const json& counters : kit.ask(Part::frameHost, {"stats"}))
            if (counters.at("service") == "tvservice") return counters;
        return nullptr;
    }
    // Waits until this many messages are counted as undecodable, and for the log line with the reason.
    void expectUndecodable(unsigned count, const std::string& reason) {
        EXPECT_TRUE(kit.waitFor([&] { return tvConnection().at("undecodable") == count; }, defaultTimeout))
            << tvConnection().dump();
        const auto logged = [&] {
            for (const LogLine& line : readLog(kit.folder() / "frame-host.log"))
                if (line.module == "io" && line.text.find(reason) != std::string::npos) return true;
            return false;
        };
        EXPECT_TRUE(kit.waitFor(logged, defaultTimeout)) << reason;
    }
    // The error of a command that fails.
    std::string errorOf(Part part, const std::vector<std::string>& command) {
        try {
            return "no error: " + kit.ask(part, command).dump();
        } catch (const ReceiverError& error) {
            return error.what();
        }
    }
    void expectServed() {
        const auto newest = kit.newestNotification();
        kit.ask(Part::frameHost, {"play", "0:0", "dvb://1.1.1"});
        kit.waitForNotification("TvServiceInfo", newest, {{"infos", {{{"result", 0}, {"uri", "dvb://1.1.1"}}}}});
    }

    ReceiverKit kit;
};

TEST_F(ReceiverWithBadInput, CountsAndLogsMalformedMessagesAndContinues) {
    // The hello of the real service, for the service that replaces it.
    kit.start(Part::tvService);
    const std::string path = (kit.runtimeFolder() / "tvservice.sock").string();
    const std::size_t helloSize = 32 + std::strlen(tvservice::serviceName) + tvservice::messageSet().count * 24;
    const std::string hello = queue_test::RawPeer(path).receive(helloSize);
    kit.kill(Part::tvService);
    std::filesystem::remove(path);

    {
        HandMadeTvService service(path, hello);
        kit.start(Part::mmService);
        kit.start(Part::frameHost);
        service.acceptClient();
        ASSERT_TRUE(kit.waitFor([&] { return tvConnection().at("connected").get<bool>(); }, defaultTimeout));

        auto unknown = messages::TvServiceTunerResult::meta;
        unknown.messageId = 0x28671299;
        service.send(frameOf(unknown, 4, words({1}, false)));
        expectUndecodable(1, "no handler for message 0x28671299");

        const auto tuner = messages::TvServiceTunerResult::meta;
        const auto tunerSize = messages::TvServiceTunerResult::Body::size;
        service.send(frameOf(tuner, tunerSize + 1, std::string(tunerSize + 1, '\0')));
        expectUndecodable(2, "message 0x28671253 dropped: message of 22 bytes has 1 bytes after its last block");

        service.send(frameOf(messages::TvServicePlayInfo::meta, 8, words({5, 0xFFFFFFF0}, false)));
        expectUndecodable(3, "message 0x28671259 dropped: string at byte 0");

        // A valid message after a malformed one, in the same send, is handled.
        const auto mtsTrack = messages::TvServiceMtsAudioTrackInfoNotify::meta;
        service.send(frameOf(tuner, tunerSize - 1, std::string(tunerSize - 1, '\0')) +
                     frameOf(mtsTrack, 4, words({77}, false)));
        expectUndecodable(4, "message 0x28671253 dropped: it has 20 bytes, its form needs 21");
        kit.waitForNotification("TvServiceMtsAudioTrackInfoNotify", 0, {{"track", 77}});
        EXPECT_EQ(kit.newestNotification(), 1U) << "no malformed message reaches a client";
        EXPECT_EQ(tvConnection().at("reconnects"), 0);
    }
    kit.start(Part::tvService);
    expectServed();
}

TEST_F(ReceiverWithBadInput, RejectsFourKilobytesAtTheShellWithAReasonOrPassesThemOnUnchanged) {
    kit.start();
    const std::string text(4096, 'x');
    EXPECT_THAT(errorOf(Part::frameHost, {"send-key", text}),
                HasSubstr("KEY has 4096 bytes, at most 1024 are allowed: 'xxx"));
    EXPECT_THAT(errorOf(Part::frameHost, {"audio", text, "1"}), HasSubstr("TERMINAL must be TYPE:ID"));
    EXPECT_THAT(errorOf(Part::frameHost, {text}), HasSubstr("unknown command"));
    EXPECT_THAT(errorOf(Part::tvService, {"emit", text}), HasSubstr("no notification \"xxx"));
    EXPECT_THAT(errorOf(Part::tvService, {"emit", "TvServicePlayInfo", R"({"info":{"strParam1":")" + text + R"("}})"}),
                HasSubstr("fewer than 4096 are allowed"));
    EXPECT_LT(kit.read(Part::frameHost, {"pathswitch", text}).size(), 4096U);

    const std::string uri = "dvb://" + text;
    constexpr int unknownChannel = 2;
    kit.ask(Part::frameHost, {"play", "0:0", uri});
    kit.waitForNotification("TvServiceInfo", 0, {{"infos", {{{"result", unknownChannel}, {"uri", uri}}}}});
    expectServed();
}

} // namespace
