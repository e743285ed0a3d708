// Each message of both services once through a whole receiver: real processes, real sockets. A receiver takes longer to
// start and to stop than all messages to travel, so that each test walks through many of them.
#include "support/samples.h"

#include <genrpc/json.h>
#include <tvservice/messages.h>

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iostream>
#include <receiver-kit/receiver-kit.h>

namespace {

using namespace receiver;
using nlohmann::json;
using testing::ElementsAreArray;
using Words = std::vector<std::string>;

#define NAME_OF(service, direction, Name, ...) #Name,

// A request: the command that sends it, and a notification that it leads to, of whose arguments those members are
// given that tell it from others.
struct Request {
    const char* message;
    Words command;
    const char* notification;
    const char* arguments;
};

// One after the other, each on what those before have left.
const Request requests[] = {
    {"TvServiceReq",
     {"play", "0:0,1:0", "dvb://1.1.1", "channel-one"},
     "TvServiceInfo",
     R"({"infos":[{"terminal":{"type":0,"id":0},"result":0,"uri":"dvb://1.1.1","uuid":"channel-one","reqId":"1"},
                  {"terminal":{"type":1,"id":0},"result":0,"uri":"dvb://1.1.1","uuid":"channel-one","reqId":"1"}]})"},
    {"TvServiceSwapWinReq", {"swap-win", "1"}, "TvServiceSwapWinInfo", R"({"info":{"intParam1":1}})"},
    {"TvServiceStreamInfoReq",
     {"stream-info", "2"},
     "TvServiceStreamInfo",
     R"({"info":{"intParam1":2,"strParam1":"dvb://1.1.2 Two, 2 video, 4 audio, 3 subtitle, 2 teletext"}})"},
    {"TvServiceAudioReq",
     {"audio", "1:0", "2", "7"},
     "TvServiceAudioInfo",
     R"({"info":{"terminal":{"type":1,"id":0},"intParam1":2,"intParam2":0,"intParam3":7}})"},
    {"TvServiceSubtitleReq",
     {"subtitle", "1:0", "3", "-8"},
     "TvServiceSubtitleInfo",
     R"({"info":{"terminal":{"type":1,"id":0},"intParam1":3,"intParam2":0,"intParam3":-8}})"},
    {"TvServiceVideoReq",
     {"video", "0:0", "2", "9"},
     "TvServiceVideoInfo",
     R"({"info":{"terminal":{"type":0,"id":0},"intParam1":2,"intParam3":9,"intParam4":720,"intParam5":576}})"},
    {"TvServiceTeletextReq",
     {"teletext", "0:0", "1"},
     "TvServiceTeletextInfo",
     R"({"info":{"terminal":{"type":0,"id":0},"intParam1":1,"intParam2":0}})"},
    {"TvServiceInfoReq",
     {"info"},
     "TvServiceInfo",
     R"({"infos":[{"uuid":"channel-one","reqId":""},{"uuid":"channel-one","reqId":""}]})"},
    {"TvServiceAskReleaseReq",
     {"ask-release", "4"},
     "TvServiceAskReleaseConf",
     R"({"confirmation":{"intParam1":4,"byteParam1":1}})"},
    {"TvServiceSendKeyReq", {"send-key", "GREEN"}, "TvServiceBroadcastApplictionInfo", R"({"application":2})"},
    {"TvServiceSListChangedInd", {"slist-changed", "12"}, "TvServiceStatusInfo", R"({"info":{"intParam1":12}})"},
    {"TvServiceTryRunReq", {"try-run", "3"}, "TvServicePlayInfo", R"({"info":{"strParam1":"dvb://1.1.3"}})"},
    {"SetParentalLockInfo",
     {"parental-lock", "1:0", "1", "16"},
     "TvServiceStatusInfo",
     R"({"info":{"services":[{"intParam1":0,"byteParam2":0},{"intParam1":1,"shortParam1":16,"byteParam2":1}]}})"},
    {"MtsAudioChangeReq", {"mts-audio", "2"}, "TvServiceMtsAudioTrackInfoNotify", R"({"track":2})"},
    {"SetCasService", {"cas-service", "5"}, "TvServiceCiSasMessageInfo", R"({"info":{"intParam1":5,"byteParam1":1}})"},
    {"RequestPackagesReq",
     {"request-packages", "3", "firmware,maps"},
     "TvserviceOadStatusNotify",
     R"({"status":1,"text":"type 3: firmware,maps"})"},
    {"TvServiceSourceChanged",
     {"source-changed", "cable"},
     "TvServiceNetworkChangeMsg",
     R"({"message":{"byteParam1":1,"strParam1":"cable"}})"},
};

struct Notification {
    const char* message;
    genrpc::Json (*arguments)(std::uint32_t variant);
};

// Arguments that are different in every field, and between two variants.
template <class Message> genrpc::Json distinctiveArguments(std::uint32_t variant) {
    support::Samples samples(variant * 1000);
    return std::apply([](const auto&... args) { return genrpc::argumentsToJson<Message>(args...); },
                      samples.next<typename Message::Body::Arguments>());
}

#define NOTIFICATION(service, direction, Name, ...) {#Name, distinctiveArguments<service::messages::Name>},
constexpr Notification notifications[] = {TVSERVICE_NOTIFICATIONS(NOTIFICATION)};

// Whether all that part has is in whole.
bool includes(const json& whole, const json& part) {
    if (part.is_object())
        return whole.is_object() && std::all_of(part.items().begin(), part.items().end(), [&](const auto& member) {
                   return whole.contains(member.key()) && includes(whole[member.key()], member.value());
               });
    if (part.is_array())
        return whole.is_array() && std::equal(whole.begin(), whole.end(), part.begin(), part.end(), includes);
    return whole == part;
}

class EveryMessage : public testing::Test {
protected:
    void SetUp() override { kit.start(); }
    void TearDown() override {
        EXPECT_EQ(kit.stop(), "");
        if (HasFailure()) std::cerr << kit.logTails(30);
    }

    // The number of the newest notification so far.
    std::uint64_t newest() {
        const json told = kit.ask(Part::frameHost, {"notifications"});
        return told.empty() ? 0 : told.back().at("number").get<std::uint64_t>();
    }
    // The arguments of the first such notification after the one with that number, as soon as it has come; else null.
    json argumentsOf(const std::string& message, std::uint64_t after) {
        json arguments;
        kit.waitFor(
            [&] {
                for (const json& told : kit.ask(Part::frameHost, {"notifications", std::to_string(after)}))
                    if (told.at("message") == message) return !(arguments = told.at("arguments")).is_null();
                return false;
            },
            patience);
        return arguments;
    }
    std::uint64_t counterOf(Part part, const std::string& service, const char* counter) {
        for (const json& counters : kit.ask(part, {"stats"}))
            if (counters.at("service") == service) return counters.at(counter);
        throw ReceiverError(std::string(nameOf(part)) + " has no " + service);
    }

    ReceiverKit kit;
};

TEST_F(EveryMessage, EachRequestReachesTheTvServiceAndLeadsToANotification) {
    Words walked;
    for (const auto& [message, command, notification, arguments] : requests) {
        SCOPED_TRACE(message);
        walked.emplace_back(message);
        const auto toldBefore = newest(), receivedBefore = counterOf(Part::tvService, "tvservice", "received");
        const json printed = kit.ask(Part::frameHost, command);
        EXPECT_EQ(printed, command.front() == "play" ? json({{"queued", 2}}) : json({{"sent", message}}));
        const json told = argumentsOf(notification, toldBefore);
        EXPECT_TRUE(includes(told, json::parse(arguments))) << notification << ' ' << told.dump(2);
        EXPECT_EQ(counterOf(Part::tvService, "tvservice", "received"), receivedBefore + 1);
    }
    EXPECT_THAT(walked, ElementsAreArray({TVSERVICE_REQUESTS(NAME_OF)}));
    EXPECT_EQ(counterOf(Part::tvService, "tvservice", "undecodable"), 0U);
}

TEST_F(EveryMessage, EachNotificationOfTheTvServiceArrivesUnchangedInEveryField) {
    for (std::uint32_t variant = 0; const auto& [message, argumentsFor] : notifications) {
        SCOPED_TRACE(message);
        const json sent = json::parse(argumentsFor(++variant).dump());
        const auto toldBefore = newest();
        EXPECT_EQ(kit.ask(Part::tvService, {"emit", message, sent.dump()}), json({{"sent", message}}));
        EXPECT_EQ(argumentsOf(message, toldBefore).dump(2), sent.dump(2));
    }
    EXPECT_EQ(counterOf(Part::frameHost, "tvservice", "received"), std::size(notifications));
    EXPECT_EQ(counterOf(Part::frameHost, "tvservice", "undecodable"), 0U);
}

TEST_F(EveryMessage, TheMmServicesRequestAndAnswerTravelWithTerminalUriAndUuid) {
    const std::string film = "file://" + (kit.folder() / "film.ts").string();
    const std::string missing = "file://" + (kit.folder() / "missing.ts").string();
    std::ofstream(kit.folder() / "film.ts") << "a film";

    kit.ask(Part::frameHost, {"play", "3:7", film, "a-film"});
    const json shown = {{"terminal", {{"type", 3}, {"id", 7}}}, {"result", 0}, {"uri", film}, {"uuid", "a-film"}};
    const json answer = argumentsOf("TvServiceInfo", 0);
    EXPECT_TRUE(includes(answer, {{"infos", json::array({shown})}})) << answer.dump(2);
    const json terminals = kit.ask(Part::mmService, {"terminals"});
    EXPECT_TRUE(includes(terminals, json::array({{{"type", 3}, {"id", 7}, {"uri", film}, {"uuid", "a-film"}}})))
        << terminals.dump(2);

    constexpr int cannotOpen = 3;
    const auto toldBefore = newest();
    kit.ask(Part::frameHost, {"play", "-4:5", missing, "no-film"});
    const json failed = {
        {"terminal", {{"type", -4}, {"id", 5}}}, {"result", cannotOpen}, {"uri", missing}, {"uuid", "no-film"}};
    const json refusal = argumentsOf("TvServiceInfo", toldBefore);
    EXPECT_TRUE(includes(refusal, {{"infos", json::array({failed})}})) << refusal.dump(2);

    // A stop before each start, and an answer to each.
    EXPECT_EQ(counterOf(Part::mmService, "mmservice", "received"), 4U);
    EXPECT_EQ(counterOf(Part::frameHost, "mmservice", "received"), 4U);
}

} // namespace
