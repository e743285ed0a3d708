// The notifications that the TV service sends after each request, and their receivers.
#include "tv-service-fixture.h"

#include <host/log-capture.h>
#include <tvservice-adapter/service/log.h>

#include <gmock/gmock.h>
#include <kit/wait.h>
#include <ostream>

using namespace tvservicetest;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

constexpr const char* channelOne = "dvb://1.1.1";
constexpr const char* movies = "dvb://1.2.2";

class TvService : public TvServiceTest {
protected:
    void lock(int type, int id, int lock, int rating) {
        requester->send<messages::SetParentalLockInfo>(
            tvservice::TvServiceParentalLockInfo_t{{type, id}, lock, rating});
    }
    template <class Message, class Request> void chooseTrack(int type, int id, int number, int echo = 0) {
        requester->send<Message>(Request{{type, id}, number, echo});
    }
    services::TableCount packages() const {
        const auto tables = service.tables();
        return tables[tables.size() - 2];
    }
    // Sends requests from a new client. Returns once the service has noticed its disconnect.
    template <class Act> void reconnect(const Act& act) {
        const auto before = service.sender().clients().size();
        {
            Client visitor;
            act(visitor);
            visitor.received();
        }
        ASSERT_TRUE(receiver::waitUntil([&] { return service.sender().clients().size() == before; }, 20s));
    }
    // Expects the same notifications for both clients.
    void expectBothReceive(const std::vector<std::string>& texts) {
        EXPECT_THAT(textsOf(requester->received()), ElementsAreArray(texts));
        EXPECT_THAT(textsOf(other->received()), ElementsAreArray(texts));
    }
    void expectOnlyTheRequesterReceives(const std::vector<std::string>& texts) {
        EXPECT_THAT(textsOf(requester->received()), ElementsAreArray(texts));
        EXPECT_THAT(other->received(), IsEmpty());
    }
};

TEST_F(TvService, ReportsTuningThenAnswersThenReportsTheStreamsOfAChannel) {
    requester->play(0, 1, channelOne);
    const auto received = requester->received();
    EXPECT_THAT(namesOf(received), ElementsAre("TvServiceTunerStatusMessage", "TvServiceInfo", "TvServiceTunerResult",
                                               "TvServiceAudioInfo", "TvServiceSubtitleInfo", "TvServiceVideoInfo",
                                               "TvServiceTeletextInfo"));
    for (const auto& notification : received)
        for (const auto& [name, argument] : notification.arguments.items()) {
            const auto& record = argument.is_array() ? argument[0] : argument;
            EXPECT_EQ(genrpc::textOf(record.at("terminal")), R"({"type":0,"id":1})") << notification.text();
        }
    EXPECT_EQ(received[5].arguments["info"]["intParam1"], 1);
    EXPECT_EQ(received[5].arguments["info"]["streams"][0]["flagParam1"], true);
    EXPECT_EQ(received[5].arguments["info"]["intParam4"], 1920);
    EXPECT_EQ(received[4].arguments["info"]["intParam1"], 0) << "no subtitles unless they are chosen";
    EXPECT_THAT(namesOf(other->received()),
                ElementsAre("TvServiceTunerStatusMessage", "TvServiceTunerResult", "TvServiceAudioInfo",
                            "TvServiceSubtitleInfo", "TvServiceVideoInfo", "TvServiceTeletextInfo"));
}

TEST_F(TvService, OnlyAnswersRequestsThatNeedNoTuner) {
    for (const char* uri : {"dvb://9.9.9", "hdmi://1", "rec://plain/null", ""}) requester->play(0, 0, uri);
    EXPECT_THAT(namesOf(requester->received()),
                ElementsAre("TvServiceInfo", "TvServiceInfo", "TvServiceInfo", "TvServiceInfo"));
    EXPECT_THAT(other->received(), IsEmpty());
}

TEST_F(TvService, SendsTheNotificationsOfAPlayAfterItsDelayedAnswer) {
    faults.set("delay=20");
    requester->play(0, 0, channelOne);
    const auto received = namesOf(requester->receivedUntil("TvServiceTeletextInfo"));
    const auto at = [&](const char* name) {
        return std::find(received.begin(), received.end(), name) - received.begin();
    };
    EXPECT_LT(at("TvServiceTunerStatusMessage"), at("TvServiceInfo"));
    EXPECT_LT(at("TvServiceInfo"), at("TvServiceTunerResult"));
}

TEST_F(TvService, SendsNotificationsWithoutAnAnswerWhenMute) {
    faults.set("mute=on");
    requester->play(0, 0, channelOne);
    const auto received = namesOf(requester->received());
    EXPECT_THAT(received, SizeIs(6));
    EXPECT_EQ(std::count(received.begin(), received.end(), "TvServiceInfo"), 0);
}

TEST_F(TvService, AnswersAListOfAThousandChannelsBesideItsNotifications) {
    std::vector<tvservice::TvServiceReq_t> requests(1000);
    for (std::size_t i = 0; i < requests.size(); ++i) {
        requests[i].terminal = {0, static_cast<int>(i)};
        requests[i].uri = channelOne;
    }
    requester->send<messages::TvServiceReq>(requests);
    const auto received = requester->received();
    const auto answer =
        std::find_if(received.begin(), received.end(), [](auto& h) { return h.message == "TvServiceInfo"; });
    ASSERT_NE(answer, received.end());
    EXPECT_THAT(answer->arguments["infos"], SizeIs(1000));
    EXPECT_THAT(received, SizeIs(64 + 1 + 64 * 5));
}

TEST_F(TvService, ChoosesATrackAndNotifiesAllClients) {
    requester->play(0, 0, channelOne);
    discard();
    chooseTrack<messages::TvServiceAudioReq, tvservice::TvServiceAudioReq_t>(0, 0, 2, 7);
    chooseTrack<messages::TvServiceSubtitleReq, tvservice::TvServiceSubtitleReq_t>(0, 0, 3);
    chooseTrack<messages::TvServiceVideoReq, tvservice::TvServiceVideoReq_t>(0, 0, 2);
    chooseTrack<messages::TvServiceTeletextReq, tvservice::TvServiceTeletextReq_t>(0, 0, 1);
    const auto received = requester->received();
    ASSERT_THAT(namesOf(received), ElementsAre("TvServiceAudioInfo", "TvServiceSubtitleInfo", "TvServiceVideoInfo",
                                               "TvServiceTeletextInfo"));
    std::vector<int> chosen;
    for (const auto& notification : received) chosen.push_back(notification.arguments["info"]["intParam1"]);
    EXPECT_THAT(chosen, ElementsAre(2, 3, 2, 1));
    const auto& audio = received[0].arguments["info"];
    EXPECT_EQ(audio["intParam3"], 7) << "the request's second number";
    EXPECT_EQ(audio["streams"][0]["flagParam1"], false);
    EXPECT_EQ(audio["streams"][1]["flagParam1"], true);
    EXPECT_EQ(received[2].arguments["info"]["intParam4"], 720);
    EXPECT_EQ(textsOf(other->received()), textsOf(received));
}

TEST_F(TvService, TurnsATrackOffAndPlaysWithTheDefaultTracksAgain) {
    requester->play(0, 0, channelOne);
    chooseTrack<messages::TvServiceAudioReq, tvservice::TvServiceAudioReq_t>(0, 0, 0);
    EXPECT_EQ(requester->received().back().arguments["info"]["intParam1"], 0);
    requester->play(0, 0, movies);
    EXPECT_EQ(requester->received()[3].arguments["info"]["intParam1"], 1);
}

TEST_F(TvService, NotifiesOnlyTheRequesterThatATrackCannotBeChosen) {
    requester->play(0, 0, channelOne);
    requester->play(0, 1, "hdmi://1");
    discard();
    for (const int number : {-1, 5, INT32_MAX, INT32_MIN})
        chooseTrack<messages::TvServiceAudioReq, tvservice::TvServiceAudioReq_t>(0, 0, number);
    const auto unknown = requester->received();
    ASSERT_THAT(unknown, SizeIs(4));
    for (const auto& notification : unknown) {
        EXPECT_EQ(notification.arguments["info"]["intParam1"], 1) << "unchanged";
        EXPECT_EQ(notification.arguments["info"]["intParam2"], services::result::unknownTrack);
    }
    chooseTrack<messages::TvServiceTeletextReq, tvservice::TvServiceTeletextReq_t>(0, 1, 1);
    chooseTrack<messages::TvServiceTeletextReq, tvservice::TvServiceTeletextReq_t>(-7, 99, 1);
    expectOnlyTheRequesterReceives(
        {R"(TvServiceTeletextInfo {"info":{"terminal":{"type":0,"id":1},"intParam1":0,"intParam2":8,"streams":[]}})",
         R"(TvServiceTeletextInfo {"info":{"terminal":{"type":-7,"id":99},"intParam1":0,"intParam2":8,"streams":[]}})"});
}

TEST_F(TvService, HasNoTracksAfterAStop) {
    requester->play(0, 0, channelOne);
    requester->play(0, 0, tvservice::stopUri);
    chooseTrack<messages::TvServiceAudioReq, tvservice::TvServiceAudioReq_t>(0, 0, 1);
    EXPECT_EQ(requester->received().back().arguments["info"]["intParam2"], services::result::nothingShown);
}

TEST_F(TvService, DescribesAChannelsStreamsToTheRequester) {
    requester->send<messages::TvServiceStreamInfoReq>(tvservice::TvServiceStreamInfoReq_t{1});
    requester->send<messages::TvServiceStreamInfoReq>(tvservice::TvServiceStreamInfoReq_t{7});
    expectOnlyTheRequesterReceives({R"(TvServiceStreamInfo {"info":{"intParam1":1,"strParam1":)"
                                    R"("dvb://1.1.1 One, 2 video, 4 audio, 3 subtitle, 2 teletext"}})",
                                    R"(TvServiceStreamInfo {"info":{"intParam1":7,"strParam1":""}})"});
}

TEST_F(TvService, SwapsWhatTwoWindowsShowWithTheirTracks) {
    requester->play(0, 0, channelOne);
    requester->play(2, 0, movies);
    chooseTrack<messages::TvServiceAudioReq, tvservice::TvServiceAudioReq_t>(2, 0, 4);
    discard();
    requester->send<messages::TvServiceSwapWinReq>(tvservice::TvServiceSwapWinReq_t{2});
    expectBothReceive({R"(TvServiceSwapWinInfo {"info":{"intParam1":2}})"});
    const auto entries = table.entries();
    ASSERT_EQ(entries.size(), 2U);
    EXPECT_EQ(entries[0].shown.uri, movies);
    EXPECT_EQ(entries[1].shown.uri, channelOne);
    chooseTrack<messages::TvServiceAudioReq, tvservice::TvServiceAudioReq_t>(0, 0, 99);
    EXPECT_EQ(requester->received().back().arguments["info"]["intParam1"], 4);
}

TEST_F(TvService, NotifiesOnlyTheRequesterThatWindowsCannotBeSwapped) {
    const auto swap = [&](int type) {
        requester->send<messages::TvServiceSwapWinReq>(tvservice::TvServiceSwapWinReq_t{type});
        expectOnlyTheRequesterReceives({R"(TvServiceSwapWinInfo {"info":{"intParam1":-1}})"});
    };
    swap(1); // neither shows anything
    requester->play(0, 0, channelOne);
    discard();
    swap(0); // with itself
    lock(1, 0, 1, 12);
    discard();
    swap(1); // with a locked one
}

TEST_F(TvService, ListsWhatTheTerminalsShowToTheRequester) {
    requester->play(0, 0, movies);
    requester->play(1, 2, "hdmi://1");
    discard();
    requester->send<messages::TvServiceInfoReq>();
    const auto received = requester->received();
    ASSERT_THAT(namesOf(received), ElementsAre("TvServiceInfo", "TvServiceStatusInfo"));
    EXPECT_EQ(genrpc::textOf(received[0].arguments),
              R"({"infos":[{"terminal":{"type":0,"id":0},"result":0,"uri":"dvb://1.2.2","uuid":"","uuidAncestor":"",)"
              R"("reqId":""},{"terminal":{"type":1,"id":2},"result":0,"uri":"hdmi://1","uuid":"","uuidAncestor":"",)"
              R"("reqId":""}]})");
    EXPECT_EQ(genrpc::textOf(received[1].arguments),
              R"({"info":{"intParam1":0,"services":[)"
              R"({"intParam1":0,"byteParam1":1,"intParam2":0,"intParam3":1,"intParam4":2,"intParam5":2,"intParam6":5,)"
              R"("shortParam1":0,"strParam1":"dvb://1.2.2","byteParam2":0},)"
              R"({"intParam1":1,"byteParam1":1,"intParam2":2,"intParam3":0,"intParam4":0,"intParam5":0,"intParam6":0,)"
              R"("shortParam1":0,"strParam1":"hdmi://1","byteParam2":0}]}})");
    EXPECT_THAT(other->received(), IsEmpty());
}

TEST_F(TvService, RejectsPlaysOnALockedTerminalUntilItIsUnlocked) {
    lock(0, 0, 1, 16);
    expectBothReceive(
        {R"(TvServiceStatusInfo {"info":{"intParam1":0,"services":[{"intParam1":0,"byteParam1":0,"intParam2":0,)"
         R"("intParam3":0,"intParam4":0,"intParam5":0,"intParam6":0,"shortParam1":16,"strParam1":"",)"
         R"("byteParam2":1}]}})"});
    requester->play(0, 0, channelOne);
    const auto refused = requester->received();
    ASSERT_THAT(namesOf(refused), ElementsAre("TvServiceInfo"));
    EXPECT_EQ(refused[0].arguments["infos"][0]["result"], services::result::locked);
    requester->play(0, 0, tvservice::stopUri);
    EXPECT_EQ(requester->received()[0].arguments["infos"][0]["result"], services::result::done);
    lock(0, 0, 0, 0);
    requester->play(0, 0, channelOne);
    EXPECT_THAT(requester->received(), SizeIs(8));
}

TEST_F(TvService, RejectsAClientsTerminalsBeyondItsShareWithoutNotificationsAndServesAnother) {
    const host::LogCapture log({services::logModule});
    std::vector<tvservice::TvServiceReq_t> requests(300);
    for (std::size_t i = 0; i < requests.size(); ++i) {
        requests[i].terminal = {7, static_cast<int>(i)};
        requests[i].uri = channelOne;
    }
    requester->send<messages::TvServiceReq>(requests);
    discard();
    requester->send<messages::TvServiceReq>(requests);
    std::size_t shown = 0, refused = 0;
    for (const auto& notification : requester->received())
        if (notification.message == "TvServiceInfo")
            for (const auto& info : notification.arguments["infos"]) {
                shown += info["result"] == services::result::done;
                refused += info["result"] == services::result::noRoom;
            }
    EXPECT_EQ(shown, services::bounds::terminalsOfAClient);
    EXPECT_EQ(refused, 300 - services::bounds::terminalsOfAClient);
    std::vector<std::string> names;
    for (const auto& counted : service.tables()) names.push_back(counted.name);
    EXPECT_THAT(names, ElementsAre("locks", "delayed answers", "packages", "source"));
    other->received();
    requester->play(8, 0, channelOne);
    expectOnlyTheRequesterReceives(
        {R"(TvServiceInfo {"infos":[{"terminal":{"type":8,"id":0},"result":9,"uri":"dvb://1.1.1",)"
         R"("uuid":"","uuidAncestor":"","reqId":"r"}]})"});
    other->play(0, 0, channelOne);
    EXPECT_THAT(other->received(), SizeIs(7));
}

TEST_F(TvService, NotifiesOnlyTheRequesterOfALockThatChangesNothingOrIsRejected) {
    const host::LogCapture log({services::logModule});
    lock(3, 0, 0, 0); // unlocks what is not locked
    expectOnlyTheRequesterReceives({R"(TvServiceStatusInfo {"info":{"intParam1":0,"services":[]}})"});
    for (int id = 0; id < 100; ++id) lock(3, id, 1, 12);
    const auto received = requester->received();
    EXPECT_THAT(other->received(), SizeIs(services::bounds::terminalsOfAClient));
    EXPECT_THAT(received, SizeIs(100));
    EXPECT_THAT(received.back().arguments["info"]["services"], SizeIs(services::bounds::terminalsOfAClient));
    EXPECT_EQ(service.tables()[0].refused, 100 - services::bounds::terminalsOfAClient);
}

// Plays on, or locks, as many terminals of a type as a client may have.
void playOnAShare(Client& client, int type) {
    std::vector<tvservice::TvServiceReq_t> requests(services::bounds::terminalsOfAClient);
    for (std::size_t id = 0; id < requests.size(); ++id) {
        requests[id].terminal = {type, static_cast<int>(id)};
        requests[id].uri = channelOne;
    }
    client.send<messages::TvServiceReq>(requests);
}
void lockAShare(Client& client, int type) {
    for (int id = 0; id < static_cast<int>(services::bounds::terminalsOfAClient); ++id)
        client.send<messages::SetParentalLockInfo>(tvservice::TvServiceParentalLockInfo_t{{type, id}, 1, 12});
}

TEST_F(TvService, RemovesTheTracksOfATerminalThatItEvicts) {
    const host::LogCapture log({services::logModule});
    for (int type = 1; type <= 5; ++type) reconnect([&](Client& visitor) { playOnAShare(visitor, type); });
    other->play(9, 0, channelOne);
    discard();
    const auto resultOn = [&](int id) -> int {
        chooseTrack<messages::TvServiceTeletextReq, tvservice::TvServiceTeletextReq_t>(2, id, 1);
        return requester->received().back().arguments["info"]["intParam2"];
    };
    EXPECT_EQ(resultOn(0), services::result::nothingShown);
    EXPECT_EQ(resultOn(1), services::result::done);
}

// A table of the service, a function that fills a client's share of it, and a request for one more entry.
struct Filling {
    const char* table;
    void (*fillShare)(Client& client, int type);
    void (*request)(Client& client);
    bool (*isGranted)(const std::vector<Received>& received);
    friend void PrintTo(const Filling& filling, std::ostream* out) { *out << filling.table; }
};

class FullTable : public TvService, public testing::WithParamInterface<Filling> {
protected:
    services::TableCount count() const {
        auto tables = service.tables();
        tables.push_back(table.count());
        return *std::find_if(tables.begin(), tables.end(),
                             [](const auto& counted) { return counted.name == GetParam().table; });
    }
};

TEST_P(FullTable, AcceptsAnotherClientsEntryHoweverOftenOneReconnectsAndFillsItsShare) {
    const host::LogCapture log({services::logModule});
    for (int type = 1; type <= 5; ++type) reconnect([&](Client& visitor) { GetParam().fillShare(visitor, type); });
    EXPECT_EQ(count().held, services::bounds::terminals);
    discard();
    GetParam().request(*other);
    const auto received = other->received();
    EXPECT_TRUE(GetParam().isGranted(received)) << testing::PrintToString(textsOf(received));
    EXPECT_EQ(count().held, services::bounds::terminals);
    EXPECT_EQ(count().refused, 0U);
}

const Filling fillings[] = {
    {"terminals", playOnAShare, [](Client& client) { client.play(9, 0, channelOne); },
     [](const auto& received) {
         return received.size() == 7 && received[1].arguments["infos"][0]["result"] == services::result::done;
     }},
    {"locks", lockAShare,
     [](Client& client) {
         client.send<messages::SetParentalLockInfo>(tvservice::TvServiceParentalLockInfo_t{{9, 0}, 1, 12});
     },
     [](const auto& received) {
         return received.size() == 1 && received[0].arguments["info"]["services"].back()["intParam1"] == 9;
     }},
};
INSTANTIATE_TEST_SUITE_P(Of, FullTable, testing::ValuesIn(fillings),
                         [](const auto& test) { return std::string(test.param.table); });

TEST_F(TvService, RejectsADownloadOfPackagesWithLongNames) {
    requester->send<messages::RequestPackagesReq>(tvservice::reqeustOadType_t{1},
                                                  std::string(services::bounds::passedTextBytes + 1, 'x'));
    expectOnlyTheRequesterReceives(
        {R"(TvserviceOadStatusNotify {"status":3,"text":"the names of the packages are too long"})"});
    EXPECT_EQ(packages().held, 0U);
    EXPECT_EQ(packages().refused, 1U);
}

TEST_F(TvService, AsksAllOthersToReleaseATunerAndConfirmsToTheRequester) {
    requester->send<messages::TvServiceAskReleaseReq>(tvservice::TvServiceAskReleaseReq_t{3});
    EXPECT_THAT(textsOf(requester->received()),
                ElementsAre(R"(TvServiceAskReleaseConf {"confirmation":{"intParam1":3,"byteParam1":1}})"));
    EXPECT_THAT(textsOf(other->received()),
                ElementsAre(R"(TvServiceAskReleaseInfo {"info":{"intParam1":3,"byteParam1":1}})"));
    requester->send<messages::TvServiceAskReleaseReq>(tvservice::TvServiceAskReleaseReq_t{-1});
    expectOnlyTheRequesterReceives({R"(TvServiceAskReleaseConf {"confirmation":{"intParam1":-1,"byteParam1":0}})"});
}

TEST_F(TvService, NotifiesAllClientsThatTheServiceListHasChanged) {
    requester->send<messages::TvServiceSListChangedInd>(tvservice::TvServiceSListChangedInd_t{12});
    expectBothReceive({R"(TvServiceStatusInfo {"info":{"intParam1":12,"services":[]}})"});
}

TEST_F(TvService, ReportsWhatATryRunWouldPlay) {
    for (const int number : {2, 0, -1, 7, INT32_MAX})
        requester->send<messages::TvServiceTryRunReq>(tvservice::TvServiceTryRunRequestParams_t{number});
    std::vector<std::string> texts(5, R"(TvServicePlayInfo {"info":{"strParam1":""}})");
    texts[0] = R"(TvServicePlayInfo {"info":{"strParam1":"dvb://1.1.2"}})";
    expectOnlyTheRequesterReceives(texts);
}

TEST_F(TvService, ChangesTheSoundOfAMultichannelBroadcastForAllClients) {
    requester->send<messages::MtsAudioChangeReq>(tvservice::MtsAudioTrack_t{2});
    expectBothReceive({R"(TvServiceMtsAudioTrackInfoNotify {"track":2})"});
    requester->send<messages::MtsAudioChangeReq>(tvservice::MtsAudioTrack_t{-1});
    requester->send<messages::MtsAudioChangeReq>(tvservice::MtsAudioTrack_t{3});
    expectOnlyTheRequesterReceives(
        {R"(TvServiceMtsAudioTrackInfoNotify {"track":2})", R"(TvServiceMtsAudioTrackInfoNotify {"track":2})"});
}

TEST_F(TvService, ChoosesTheConditionalAccessService) {
    requester->send<messages::SetCasService>(tvservice::TvServiceCasServiceType_t{4});
    expectBothReceive({R"(TvServiceCiSasMessageInfo {"info":{"intParam1":4,"byteParam1":1}})"});
    requester->send<messages::SetCasService>(tvservice::TvServiceCasServiceType_t{-4});
    expectOnlyTheRequesterReceives({R"(TvServiceCiSasMessageInfo {"info":{"intParam1":-4,"byteParam1":0}})"});
}

TEST_F(TvService, NotifiesAllClientsOfANewSource) {
    requester->send<messages::TvServiceSourceChanged>(std::string("cable"));
    requester->send<messages::TvServiceSourceChanged>(std::string());
    expectBothReceive({R"(TvServiceNetworkChangeMsg {"message":{"byteParam1":1,"strParam1":"cable"}})",
                       R"(TvServiceNetworkChangeMsg {"message":{"byteParam1":0,"strParam1":""}})"});
}

TEST_F(TvService, ReportsWhichBroadcastApplicationHandledAKey) {
    for (const char* key : {"RED", "BLUE", "HOME", ""})
        requester->send<messages::TvServiceSendKeyReq>(std::string(key));
    expectOnlyTheRequesterReceives({R"(TvServiceBroadcastApplictionInfo {"application":1})",
                                    R"(TvServiceBroadcastApplictionInfo {"application":4})",
                                    R"(TvServiceBroadcastApplictionInfo {"application":0})",
                                    R"(TvServiceBroadcastApplictionInfo {"application":0})"});
}

TEST_F(TvService, TurnsCaptionsOnAndOffAtTheirKey) {
    for (int i = 0; i < 2; ++i) requester->send<messages::TvServiceSendKeyReq>(std::string("CC"));
    EXPECT_THAT(requester->received(), SizeIs(4));
    EXPECT_THAT(textsOf(other->received()), ElementsAre(R"(TvServiceCcInfoNotify {"info":{"intParam1":1}})",
                                                        R"(TvServiceCcInfoNotify {"info":{"intParam1":0}})"));
}

TEST_F(TvService, DownloadsPackagesAndNotifiesAllClientsOfEachStep) {
    requester->send<messages::RequestPackagesReq>(tvservice::reqeustOadType_t{1}, std::string("kernel,apps"));
    std::vector<std::string> expected{R"(TvServiceFoundNewOadPacket {"packet":2})",
                                      R"(TvserviceOadStatusNotify {"status":1,"text":"type 1: kernel,apps"})"};
    for (int percent = 0; percent <= 100; percent += 10)
        expected.push_back("TvserviceOadProgressNotify {\"progress\":" + std::to_string(percent) + "}");
    expected.push_back(R"(TvserviceOadStatusNotify {"status":2,"text":"type 1: kernel,apps"})");
    const auto isComplete = [&](const auto& all) { return all.size() == expected.size(); };
    EXPECT_THAT(textsOf(requester->waitUntil(isComplete)), ElementsAreArray(expected));
    EXPECT_THAT(textsOf(other->waitUntil(isComplete)), ElementsAreArray(expected));
    // Again, because the first download has ended.
    requester->send<messages::RequestPackagesReq>(tvservice::reqeustOadType_t{1}, std::string("kernel,apps"));
    EXPECT_THAT(textsOf(requester->waitUntil(isComplete)), ElementsAreArray(expected));
}

TEST_F(TvService, RejectsADownloadOfNothing) {
    requester->send<messages::RequestPackagesReq>(tvservice::reqeustOadType_t{1}, std::string());
    expectOnlyTheRequesterReceives({R"(TvserviceOadStatusNotify {"status":3,"text":"no packages are named"})"});
}

TEST_F(TvService, PassesOnAnyBytesUnchanged) {
    const std::string source = std::string("a\0b", 3) + std::string(services::bounds::passedTextBytes - 3, 'x');
    requester->send<messages::TvServiceSourceChanged>(source);
    EXPECT_EQ(requester->received().at(0).arguments["message"]["strParam1"], source);
}

TEST_F(TvService, NotifiesOnlyTheRequesterThatTheNameOfASourceIsTooLong) {
    requester->send<messages::TvServiceSourceChanged>(std::string("cable"));
    discard();
    requester->send<messages::TvServiceSourceChanged>(std::string(services::bounds::passedTextBytes + 1, 'x'));
    expectOnlyTheRequesterReceives({R"(TvServiceNetworkChangeMsg {"message":{"byteParam1":1,"strParam1":"cable"}})"});
    const auto source = service.tables().back();
    EXPECT_EQ(source.name, "source");
    EXPECT_EQ(source.held, 5U);
    EXPECT_EQ(source.most, services::bounds::passedTextBytes);
    EXPECT_EQ(source.refused, 1U);
}

// A step takes longer than any test, so the download is still running when the service ends.
TEST(Downloads, RunOneAtATimeAndEndWithTheService) {
    host::MessageQueue queue;
    char folder[] = "/tmp/tv-service-XXXXXX";
    ASSERT_NE(mkdtemp(folder), nullptr);
    setenv("RUNTIME_DIRECTORY", folder, 1);
    services::TerminalTable table;
    services::FaultSwitches faults;
    const auto channels = services::ChannelList::builtIn();
    {
        media::SimulatedEngine engine;
        services::TvService service(table, faults, channels, engine, 1h);
        service.offer(queue);
        queue.start();
        {
            Client client;
            for (int i = 0; i < 2; ++i)
                client.send<messages::RequestPackagesReq>(tvservice::reqeustOadType_t{0}, std::string("kernel"));
            EXPECT_THAT(textsOf(client.received()),
                        ElementsAre(R"(TvServiceFoundNewOadPacket {"packet":1})",
                                    R"(TvserviceOadStatusNotify {"status":1,"text":"type 0: kernel"})",
                                    R"(TvserviceOadStatusNotify {"status":3,"text":"a download is under way"})"));
            const auto tables = service.tables();
            const auto& packages = tables[tables.size() - 2];
            EXPECT_EQ(packages.name, "packages");
            EXPECT_EQ(packages.held, 6U);
            EXPECT_EQ(packages.refused, 1U);
        }
        queue.stop();
    }
    std::filesystem::remove_all(folder);
}

} // namespace
