// Sends each message of both services through a whole receiver: real processes, real sockets. Each message has a test
// with its name. Tests that run in one program share a receiver.
#include "control/src/named-json.h"

#include <genrpc/json.h>
#include <tvservice/messages.h>

#include <cstdint>
#include <fstream>
#include <gtest/gtest.h>
#include <iostream>
#include <kit/receiver-kit.h>
#include <map>
#include <memory>
#include <schema/samples.h>
#include <string>
#include <vector>

namespace {

using namespace receiver;
using nlohmann::json;

// A request: the command that sends it, and a notification that it causes, with the arguments that identify the
// notification.
struct Request {
    std::vector<std::string> command;
    const char* notification;
    const char* arguments;
};

// For a receiver whose terminals 0:0 and 1:0 show a channel.
const std::map<std::string, Request> requests{
    {"TvServiceReq",
     {{"play", "2:0,3:5", "dvb://1.2.2", "movies"},
      "TvServiceInfo",
      R"({"infos":[{"terminal":{"type":2,"id":0},"result":0,"uri":"dvb://1.2.2","uuid":"movies"},
                  {"terminal":{"type":3,"id":5},"result":0,"uri":"dvb://1.2.2","uuid":"movies"}]})"}},
    {"TvServiceSwapWinReq", {{"swap-win", "1"}, "TvServiceSwapWinInfo", R"({"info":{"intParam1":1}})"}},
    {"TvServiceStreamInfoReq",
     {{"stream-info", "2"},
      "TvServiceStreamInfo",
      R"({"info":{"intParam1":2,"strParam1":"dvb://1.1.2 Two, 2 video, 4 audio, 3 subtitle, 2 teletext"}})"}},
    {"TvServiceAudioReq",
     {{"audio", "1:0", "2", "7"},
      "TvServiceAudioInfo",
      R"({"info":{"terminal":{"type":1,"id":0},"intParam1":2,"intParam2":0,"intParam3":7}})"}},
    {"TvServiceSubtitleReq",
     {{"subtitle", "1:0", "3", "-8"},
      "TvServiceSubtitleInfo",
      R"({"info":{"terminal":{"type":1,"id":0},"intParam1":3,"intParam2":0,"intParam3":-8}})"}},
    {"TvServiceVideoReq",
     {{"video", "0:0", "2", "9"},
      "TvServiceVideoInfo",
      R"({"info":{"terminal":{"type":0,"id":0},"intParam1":2,"intParam3":9,"intParam4":720,"intParam5":576}})"}},
    {"TvServiceTeletextReq",
     {{"teletext", "0:0", "1"},
      "TvServiceTeletextInfo",
      R"({"info":{"terminal":{"type":0,"id":0},"intParam1":1,"intParam2":0}})"}},
    {"TvServiceInfoReq",
     {{"info"},
      "TvServiceInfo",
      R"({"infos":[{"terminal":{"type":0,"id":0},"uri":"dvb://1.1.1","uuid":"one","reqId":""},
                  {"terminal":{"type":1,"id":0},"uri":"dvb://1.1.1","uuid":"one","reqId":""}]})"}},
    {"TvServiceAskReleaseReq",
     {{"ask-release", "4"}, "TvServiceAskReleaseConf", R"({"confirmation":{"intParam1":4,"byteParam1":1}})"}},
    {"TvServiceSendKeyReq", {{"send-key", "GREEN"}, "TvServiceBroadcastApplictionInfo", R"({"application":2})"}},
    {"TvServiceSListChangedInd", {{"slist-changed", "12"}, "TvServiceStatusInfo", R"({"info":{"intParam1":12}})"}},
    {"TvServiceTryRunReq", {{"try-run", "3"}, "TvServicePlayInfo", R"({"info":{"strParam1":"dvb://1.1.3"}})"}},
    {"SetParentalLockInfo",
     {{"parental-lock", "4:0", "1", "16"},
      "TvServiceStatusInfo",
      R"({"info":{"services":[{"intParam1":0,"byteParam2":0},{"intParam1":4,"shortParam1":16,"byteParam2":1}]}})"}},
    {"MtsAudioChangeReq", {{"mts-audio", "2"}, "TvServiceMtsAudioTrackInfoNotify", R"({"track":2})"}},
    {"SetCasService",
     {{"cas-service", "5"}, "TvServiceCiSasMessageInfo", R"({"info":{"intParam1":5,"byteParam1":1}})"}},
    {"RequestPackagesReq",
     {{"request-packages", "3", "firmware,maps"},
      "TvserviceOadStatusNotify",
      R"({"status":2,"text":"type 3: firmware,maps"})"}},
    {"TvServiceSourceChanged",
     {{"source-changed", "cable"}, "TvServiceNetworkChangeMsg", R"({"message":{"byteParam1":1,"strParam1":"cable"}})"}},
};

// Arguments as they are sent, and as a receiver prints them: with the names of numbers.
struct Delivery {
    json sent;
    json printed;
};

// Arguments that differ in every field and every message.
template <class Message> Delivery distinctiveArguments() {
    schema::Samples samples(Message::meta.messageId * 1000);
    const auto arguments = samples.next<typename Message::Body::Arguments>();
    const auto asJson = [](const genrpc::Json& ordered) { return json::parse(ordered.dump()); };
    return std::apply(
        [&](const auto&... args) {
            return Delivery{asJson(genrpc::argumentsToJson<Message>(args...)),
                            asJson(control::argumentsToNamedJson<Message>(args...))};
        },
        arguments);
}

std::uint64_t counterOf(ReceiverKit& kit, Part part, const std::string& service, const char* counter) {
    for (const json& counters : kit.ask(part, {"stats"}))
        if (counters.at("service") == service) return counters.at(counter);
    throw ReceiverError(std::string(nameOf(part)) + " has no " + service);
}

class EveryMessage : public testing::Test {
protected:
    static void SetUpTestSuite() {
        kit = std::make_unique<ReceiverKit>();
        kit->start();
        kit->ask(Part::frameHost, {"play", "0:0,1:0", "dvb://1.1.1", "one"});
        kit->waitForNotification("TvServiceInfo", 0);
    }
    // Without a check: AReceiver.EndsAsAskedAfterAllMessages tests how a receiver ends.
    static void TearDownTestSuite() { kit.reset(); }
    void TearDown() override {
        if (HasFailure()) std::cerr << kit->logTails(30);
    }

    // Expects that the request reaches the TV service and that its notification arrives.
    static void expectDelivery(const std::string& message, const Request& request) {
        const auto newest = kit->newestNotification(), received = tvRequests();
        const json printed = kit->ask(Part::frameHost, request.command);
        EXPECT_TRUE(
            includes(printed, request.command.front() == "play" ? json({{"queued", 2}}) : json({{"sent", message}})))
            << printed;
        kit->waitForNotification(request.notification, newest, json::parse(request.arguments));
        EXPECT_EQ(tvRequests(), received + 1);
    }
    // Expects that a notification of the TV service arrives unchanged in every field.
    static void expectDelivery(const std::string& message, const Delivery& arguments) {
        const auto newest = kit->newestNotification();
        EXPECT_EQ(kit->ask(Part::tvService, {"emit", message, arguments.sent.dump()}), json({{"sent", message}}));
        EXPECT_EQ(kit->waitForNotification(message, newest, arguments.sent).at("arguments"), arguments.printed);
    }
    static std::uint64_t tvRequests() { return counterOf(*kit, Part::tvService, "tvservice", "received"); }

    static inline std::unique_ptr<ReceiverKit> kit;
};

#define REQUEST_TEST(service, direction, Name, ...) \
    TEST_F(EveryMessage, Name) { expectDelivery(#Name, requests.at(#Name)); }
TVSERVICE_REQUESTS(REQUEST_TEST)

#define NOTIFICATION_TEST(service, direction, Name, ...) \
    TEST_F(EveryMessage, Name) { expectDelivery(#Name, distinctiveArguments<service::messages::Name>()); }
TVSERVICE_NOTIFICATIONS(NOTIFICATION_TEST)

TEST_F(EveryMessage, MmServiceReq) {
    const std::string film = "file://" + (kit->folder() / "film.ts").string();
    std::ofstream(kit->folder() / "film.ts") << "a film";
    const auto newest = kit->newestNotification(), received = counterOf(*kit, Part::mmService, "mmservice", "received");
    kit->ask(Part::frameHost, {"play", "5:7", film, "a-film"});
    kit->waitForNotification("TvServiceInfo", newest);
    const json terminals = kit->ask(Part::mmService, {"terminals"});
    EXPECT_TRUE(includes(terminals, json::array({{{"type", 5}, {"id", 7}, {"uri", film}, {"uuid", "a-film"}}})))
        << terminals.dump(2);
    EXPECT_EQ(counterOf(*kit, Part::mmService, "mmservice", "received"), received + 2) << "a stop, then a start";
}

TEST_F(EveryMessage, MmServiceInfo) {
    constexpr int cannotOpen = 3;
    const std::string missing = "file://" + (kit->folder() / "missing.ts").string();
    const auto newest = kit->newestNotification(), received = counterOf(*kit, Part::frameHost, "mmservice", "received");
    kit->ask(Part::frameHost, {"play", "6:8", missing, "no-film"});
    const json answer = {
        {"terminal", {{"type", 6}, {"id", 8}}}, {"result", cannotOpen}, {"uri", missing}, {"uuid", "no-film"}};
    kit->waitForNotification("TvServiceInfo", newest, {{"infos", json::array({answer})}});
    EXPECT_EQ(counterOf(*kit, Part::frameHost, "mmservice", "received"), received + 2) << "to a stop and a start";
}

#define NAME_OF(service, direction, Name, ...) #Name,
constexpr const char* notifications[] = {TVSERVICE_NOTIFICATIONS(NAME_OF)};

TEST(AReceiver, EndsAsAskedAfterAllMessages) {
    ReceiverKit kit;
    kit.start();
    for (const auto& [message, request] : requests) kit.ask(Part::frameHost, request.command);
    for (const char* message : notifications) kit.ask(Part::tvService, {"emit", message});
    const std::size_t least = std::size(notifications);
    EXPECT_TRUE(kit.waitFor([&] { return kit.newestNotification() >= least; }, defaultTimeout));
    EXPECT_EQ(kit.stop(), "");
}

} // namespace
