// tvctl watch on a whole receiver: the services send notifications, and tvctl prints them.
#include "integration/program-run.h"

#include <future>
#include <nlohmann/json.hpp>

namespace {

using namespace program_run;
using nlohmann::ordered_json;
using receiver::Part;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

class WatchedReceiver : public Programs {
protected:
    WatchedReceiver() {
        kit.start();
        environment["RUNTIME_DIRECTORY"] = kit.runtimeFolder();
    }

    // Runs tvctl watch. Until it ends, the services alternately send notifications of a sound track and of a key,
    // because those sent before the watch begins are not printed.
    Outcome watch(Words arguments) {
        arguments.insert(arguments.begin(), {program("tvctl"), "watch"});
        const auto watching = start(arguments);
        auto outcome = std::async(std::launch::async, [&] { return watching->wait(); });
        do {
            kit.ask(Part::frameHost, {"mts-audio", "1"});
            kit.ask(Part::frameHost, {"send-key", "GREEN"});
        } while (outcome.wait_for(std::chrono::milliseconds(10)) != std::future_status::ready);
        return outcome.get();
    }
    static Words linesOf(const std::string& text) {
        Words lines;
        std::istringstream in(text);
        for (std::string line; std::getline(in, line);) lines.push_back(line);
        return lines;
    }

    const std::string track = "TvServiceMtsAudioTrackInfoNotify", key = "TvServiceBroadcastApplictionInfo";
    receiver::ReceiverKit kit;
};

TEST_F(WatchedReceiver, IsFollowedOnlyForTheMessagesThatAreNamed) {
    const Outcome outcome = watch({"--count", "3", key});
    EXPECT_EQ(outcome.exitCode, 0) << outcome.error;
    const Words lines = linesOf(outcome.output);
    EXPECT_THAT(lines, SizeIs(3));
    for (const std::string& line : lines)
        EXPECT_THAT(line, EndsWith("Z " + key + R"( {"application":2,"applicationName":"green"})"));
}

TEST_F(WatchedReceiver, IsFollowedForOneNotificationOnce) {
    const Outcome outcome = watch({track, "--once"});
    EXPECT_EQ(outcome.exitCode, 0) << outcome.error;
    const Words lines = linesOf(outcome.output);
    ASSERT_THAT(lines, SizeIs(1));
    EXPECT_THAT(lines[0], EndsWith("Z " + track + R"( {"track":1,"trackName":"second programme"})"));
}

TEST_F(WatchedReceiver, IsFollowedForEveryNotificationInOrderAsJson) {
    const Outcome outcome = watch({"--json", "--count", "5"});
    EXPECT_EQ(outcome.exitCode, 0) << outcome.error;
    const Words lines = linesOf(outcome.output);
    ASSERT_THAT(lines, SizeIs(5));
    std::uint64_t number = 0;
    for (const std::string& line : lines) {
        auto notification = ordered_json::parse(line);
        if (number == 0) number = notification.at("number");
        EXPECT_EQ(notification.at("number"), number++) << "none is left out";
        EXPECT_THAT(notification.at("time").get<std::string>(), EndsWith("Z"));
        notification.erase("number");
        notification.erase("time");
        EXPECT_EQ(notification.dump(),
                  notification.at("message") == track
                      ? R"({"message":")" + track + R"(","arguments":{"track":1,"trackName":"second programme"}})"
                      : R"({"message":")" + key + R"(","arguments":{"application":2,"applicationName":"green"}})");
    }
}

TEST_F(WatchedReceiver, IsFollowedForSeveralNamedMessages) {
    const Outcome outcome = watch({"--count", "4", key, track});
    EXPECT_EQ(outcome.exitCode, 0) << outcome.error;
    EXPECT_THAT(linesOf(outcome.output), SizeIs(4));
    EXPECT_THAT(outcome.output, AllOf(HasSubstr(key), HasSubstr(track)));
}

TEST_F(WatchedReceiver, IsNotFollowedForLongerThanTheTimeout) {
    const Outcome outcome = watch({"--timeout", "0.3", "--once", "TvServiceInstalledInfo"});
    EXPECT_EQ(outcome.exitCode, 4);
    EXPECT_THAT(outcome.output, IsEmpty());
    // The text goes on if its last request was not answered either.
    EXPECT_THAT(outcome.error, testing::StartsWith("tvctl: timed out after 0 of 1 notifications"));
}

} // namespace
