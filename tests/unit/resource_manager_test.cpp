// The resource manager: accepting requests and handling answers.
#include "unit/resource-manager-fixture.h"

#include <csignal>

namespace {

using namespace managertest;

// ---- request ids ----

TEST_F(ResManagerTest, NumbersBundlesFromOne) {
    for (const char* expected : {"1", "2", "3"}) {
        std::string id;
        EXPECT_EQ(manager.createReqID({request(0, 0, "dvb://1")}, id), 0);
        EXPECT_EQ(id, expected);
    }
}

TEST_F(ResManagerTest, UsesACommonIdWithoutCountingIt) {
    std::string id;
    EXPECT_EQ(
        manager.createReqID({request(0, 0, "a", "abc"), request(1, 0, "b", "abc"), request(2, 0, "c", "abc")}, id), 1);
    EXPECT_EQ(id, "abc");
    EXPECT_EQ(manager.createReqID({request(0, 0, "a")}, id), 0);
    EXPECT_EQ(id, "1");
}

TEST_F(ResManagerTest, ContinuesAtZeroAfterTheLastNumber) {
    manager.reqIdSeq = 4294967295U;
    std::string id;
    manager.createReqID({request(0, 0, "a")}, id);
    EXPECT_EQ(id, "4294967295");
    manager.createReqID({request(0, 0, "a")}, id);
    EXPECT_EQ(id, "0");
}

TEST(ResManagerDeathTest, EndsTheProcessForMixedIds) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto ask = [](const std::string& first, const std::string& second) {
        vdlDebugSetLevels("failure");
        Manager().ask({request(0, 0, "a", first), request(1, 0, "b", second)});
    };
    EXPECT_EXIT(ask("abc", "abd"), testing::KilledBySignal(SIGABRT), "reqid not equal in tvServiceReq");
    EXPECT_EXIT(ask("abc", ""), testing::KilledBySignal(SIGABRT), "reqid not equal in tvServiceReq");
    EXPECT_EXIT(ask("", "abc"), testing::KilledBySignal(SIGABRT), "reqid not equal in tvServiceReq");
}

TEST(ResManagerTexts, NameEveryValue) {
    EXPECT_STREQ(textOf(SendingStop), "ResOperation::SendingStop");
    EXPECT_STREQ(textOf(WaitingStop), "ResOperation::WaitingStop");
    EXPECT_STREQ(textOf(SendingStart), "ResOperation::SendingStart");
    EXPECT_STREQ(textOf(WaitingStart), "ResOperation::WaitingStart");
    EXPECT_STREQ(textOf(static_cast<ResOperation>(4)), "Unsupported operation");
    EXPECT_STREQ(textOf(ResponseNO), "ResResponse::ResponseNO");
    EXPECT_STREQ(textOf(ResponseMM), "ResResponse::ResponseMM");
    EXPECT_STREQ(textOf(ResponseTV), "ResResponse::ResponseTV");
    EXPECT_STREQ(textOf(ResponseBOTH), "ResResponse::ResponseBOTH");
    EXPECT_STREQ(textOf(static_cast<ResResponse>(7)), "Unsupported Response");
}

// ---- intake ----

TEST_F(ResManagerTest, StopsBothServicesAndStartsTheNullSourceOnAStop) {
    EXPECT_EQ(manager.ask({request(1, 0, stopUri)}), 0);
    EXPECT_EQ(manager.lists(),
              "pStop 1:0=rec://plain/null#1 | pTvStop 1:0=rec://plain/null#1 | pMM | pTV "
              "1:0=rec://plain/null#1");
    EXPECT_THAT(manager.queue(),
                ElementsAre("1: SendingStop/ResponseNO WaitingStop/ResponseBOTH SendingStart/ResponseNO "
                            "WaitingStart/ResponseTV"));
}

TEST_F(ResManagerTest, TreatsAStopOnATerminalOfTypeFiveLikeAnyOtherUri) {
    manager.ask({request(5, 0, stopUri)});
    EXPECT_EQ(manager.lists(), "pStop | pTvStop | pMM | pTV 5:0=rec://plain/null#1");
    EXPECT_THAT(manager.queue(), ElementsAre("1: SendingStart/ResponseNO WaitingStart/ResponseTV"));
}

TEST_F(ResManagerTest, StopsBothServicesBeforeTheMmServicePlays) {
    for (const std::string scheme : {"http", "https", "miracast", "external", "youtube", "youtubev4", "rtp", "HTTP"}) {
        Manager fresh;
        fresh.ask({request(1, 0, scheme + "://x")});
        EXPECT_EQ(fresh.lists(),
                  "pStop 1:0=rec://plain/null#1 | pTvStop 1:0=rec://plain/null#1 | pMM 1:0=" + scheme + "://x#1 | pTV");
        EXPECT_THAT(fresh.queue(), ElementsAre("1: SendingStop/ResponseNO WaitingStop/ResponseBOTH "
                                               "SendingStart/ResponseNO WaitingStart/ResponseMM"));
    }
}

TEST_F(ResManagerTest, StopsTheMmServiceBeforeLiveTvOnlyWhereItPlays) {
    manager.ask({request(1, 0, "http://x")});
    manager.ask({request(1, 0, "dvb://1"), request(2, 0, "dvb://2")});
    EXPECT_EQ(manager.lists(1), "pStop 1:0=rec://plain/null#2 | pTvStop | pMM | pTV 1:0=dvb://1#2 2:0=dvb://2#2");
    EXPECT_THAT(manager.queue()[1],
                "2: SendingStop/ResponseNO WaitingStop/ResponseMM SendingStart/ResponseNO WaitingStart/ResponseTV");
    // The stop is queued, so the manager no longer assumes that the terminal plays.
    manager.ask({request(1, 0, "dvb://3")});
    EXPECT_EQ(manager.lists(2), "pStop | pTvStop | pMM | pTV 1:0=dvb://3#3");
    EXPECT_THAT(manager.queue()[2], "3: SendingStart/ResponseNO WaitingStart/ResponseTV");
}

TEST_F(ResManagerTest, SendsRecordingsToTheTvService) {
    for (const std::string uri : {"file:///media/Video USB REC/1.ts", "fsl2://disk/PVR+/2", "FILE:///PVR+"}) {
        Manager fresh;
        fresh.ask({request(1, 0, uri)});
        EXPECT_EQ(fresh.lists(), "pStop 1:0=rec://plain/null#1 | pTvStop | pMM | pTV 1:0=" + uri + "#1");
    }
    EXPECT_EQ(linesWith("hdrplayback").front(), "hdrplayback service url file:///media/Video USB REC/1.ts");
}

TEST_F(ResManagerTest, SendsCachedRecordingsAndOtherFilesToTheMmService) {
    for (const std::string uri :
         {"file:///media/Video USB REC/1.cache", "file:///PVR+/x.cache", "fsl2://disk/film.mp4"}) {
        Manager fresh;
        fresh.ask({request(1, 0, uri)});
        EXPECT_EQ(fresh.lists(),
                  "pStop 1:0=rec://plain/null#1 | pTvStop 1:0=rec://plain/null#1 | pMM 1:0=" + uri + "#1 | pTV");
    }
    EXPECT_EQ(linesWith("media service").front(), "media service  url file:///media/Video USB REC/1.cache");
}

TEST_F(ResManagerTest, MakesOneBundleOfAMixedList) {
    manager.ask({request(1, 0, "http://x"), request(2, 0, "dvb://2")});
    EXPECT_EQ(manager.lists(),
              "pStop 1:0=rec://plain/null#1 | pTvStop 1:0=rec://plain/null#1 | pMM 1:0=http://x#1 | "
              "pTV 2:0=dvb://2#1");
    EXPECT_THAT(manager.queue(), ElementsAre("1: SendingStop/ResponseNO WaitingStop/ResponseBOTH "
                                             "SendingStart/ResponseNO WaitingStart/ResponseBOTH"));
}

TEST_F(ResManagerTest, QueuesNothingForAnEmptyList) {
    EXPECT_EQ(manager.ask({}), 0);
    EXPECT_THAT(manager.queue(), IsEmpty());
    EXPECT_EQ(manager.reqIdSeq, 1U);
}

TEST_F(ResManagerTest, LogsTheIdEvenIfTheClientChoseIt) {
    manager.ask({request(0, 0, "dvb://1", "mine")});
    EXPECT_THAT(linesWith("PFM-POWER2"), ElementsAre("PFM-POWER2:new reqid mine created"));
    EXPECT_THAT(linesWith("Req size"), ElementsAre("Req size for new reqid mine: pStop 0, pTvStop 0, pMM 0, pTV 1 "));
    EXPECT_THAT(linesWith("dump the requests"),
                ElementsAre("dump the requests detail pstop size 0, pMM size 0, pTV size 1"));
    EXPECT_THAT(
        linesWith("Tv Service Req"),
        ElementsAre("Tv Service Req:\nTERMINAL TYPE: 0  |  ID: 0\nURI:           'dvb://1'\nUUID:          ''"));
    EXPECT_EQ(log->lines().front().text.rfind("resource-manager.cpp:", 0), 0U);
}

TEST_F(ResManagerTest, WritesOneNewIdIntoEveryRequestOfTheList) {
    manager.ask({request(1, 0, "http://x"), request(2, 0, "dvb://2"), request(3, 0, stopUri)});
    EXPECT_EQ(manager.lists(),
              "pStop 1:0=rec://plain/null#1 3:0=rec://plain/null#1 | "
              "pTvStop 1:0=rec://plain/null#1 3:0=rec://plain/null#1 | "
              "pMM 1:0=http://x#1 | pTV 2:0=dvb://2#1 3:0=rec://plain/null#1");
    EXPECT_EQ(manager.reqIdSeq, 2U);
}

TEST_F(ResManagerTest, KeepsACommonIdInEveryRequestOfTheListWithoutCountingIt) {
    manager.ask({request(1, 0, "http://x", "abc"), request(2, 0, "dvb://2", "abc"), request(3, 0, stopUri, "abc")});
    EXPECT_EQ(manager.lists(),
              "pStop 1:0=rec://plain/null#abc 3:0=rec://plain/null#abc | "
              "pTvStop 1:0=rec://plain/null#abc 3:0=rec://plain/null#abc | "
              "pMM 1:0=http://x#abc | pTV 2:0=dvb://2#abc 3:0=rec://plain/null#abc");
    EXPECT_THAT(manager.queue(), ElementsAre(testing::StartsWith("abc:")));
    EXPECT_EQ(manager.reqIdSeq, 1U);
}

TEST_F(ResManagerTest, RemembersOnlyTheLatestRequestOfATerminal) {
    manager.ask({request(1, 0, "http://a")});
    manager.ask({request(1, 0, "http://b"), request(1, 1, "http://c")});
    manager.ask({request(1, 0, "dvb://1")});
    EXPECT_EQ(manager.lists(2), "pStop 1:0=rec://plain/null#3 | pTvStop | pMM | pTV 1:0=dvb://1#3");
    // The manager assumes that the other terminal still plays.
    manager.ask({request(1, 1, "dvb://2")});
    EXPECT_EQ(manager.lists(3), "pStop 1:1=rec://plain/null#4 | pTvStop | pMM | pTV 1:1=dvb://2#4");
}

TEST_F(ResManagerTest, NoLongerAssumesThatTheMmServicePlaysAfterItsStop) {
    for (const std::string after : {stopUri, "fsl2://disk/PVR+/2"}) {
        Manager fresh;
        fresh.ask({request(1, 0, "http://a")});
        fresh.ask({request(1, 0, after)});
        fresh.ask({request(1, 0, "dvb://1")});
        EXPECT_EQ(fresh.lists(2), "pStop | pTvStop | pMM | pTV 1:0=dvb://1#3");
    }
}

TEST_F(ResManagerTest, KeepsItsAssumptionWhateverTheServicesAnswer) {
    manager.ask({request(1, 0, "http://a")});
    manager.work();
    manager.answer(ResponseMM, {info(1, 0, "1", -1)});
    manager.answer(ResponseTV, {info(1, 0, "1", -1)});
    manager.work();
    EXPECT_EQ(manager.answer(ResponseMM, {info(1, 0, "1", -1)}), 2);
    manager.ask({request(1, 0, "dvb://1")});
    EXPECT_EQ(manager.lists(), "pStop 1:0=rec://plain/null#2 | pTvStop | pMM | pTV 1:0=dvb://1#2");
}

// ---- answers ----

TEST_F(ResManagerTest, CombinesTheAnswersOfBothServicesIntoOneReport) {
    manager.ask({request(5, 1, "external://x"), request(2, 0, "dvb://2")});
    manager.work();
    manager.answer(ResponseMM, {info(5, 1, "1")});
    manager.answer(ResponseTV, {info(5, 1, "1")});
    manager.work();
    EXPECT_EQ(manager.answer(ResponseTV, {info(2, 0, "1", 0, "dvb://2")}), 0);
    EXPECT_THAT(manager.reports, IsEmpty());
    EXPECT_EQ(manager.answer(ResponseMM, {info(5, 1, "1", 7, "external://x")}), 2);
    EXPECT_THAT(manager.reports, ElementsAre("info 2:0=dvb://2/0#1 5:1=external://x/7#1"));
    EXPECT_THAT(manager.queue(), IsEmpty());
    EXPECT_THAT(linesWith("finished"), ElementsAre("finished req_id 1"));
    EXPECT_TRUE(log->waitFor(":notifyInfo(): finished", 0s));
}

TEST_F(ResManagerTest, PassesOnAnswersThatBelongToNoActiveBundle) {
    EXPECT_EQ(manager.answer(ResponseTV, {info(0, 0, "9")}), 0);
    EXPECT_THAT(linesWith("queue empty"), ElementsAre("currently queue empty, not for us"));
    manager.ask({request(0, 0, "dvb://1")});
    manager.work();
    EXPECT_EQ(manager.answer(ResponseTV, {}), 0);
    EXPECT_EQ(manager.answer(ResponseTV, {info(0, 0, ""), info(0, 0, "1")}), 0);
    EXPECT_EQ(manager.answer(ResponseTV, {info(0, 0, "11")}), 0);
    EXPECT_EQ(manager.answer(ResponseNO, {info(0, 0, "1")}), 0);
    EXPECT_EQ(manager.answer(static_cast<ResResponse>(4), {info(0, 0, "1")}), 0);
    EXPECT_THAT(manager.reports, ElementsAre("info 0:0=u/0#9", "info", "info 0:0=u/0# 0:0=u/0#1", "info 0:0=u/0#11",
                                             "info 0:0=u/0#1", "info 0:0=u/0#1"));
    EXPECT_THAT(linesWith("empty return"),
                ElementsAre("tvServiceInfo empty return ", "tvServiceInfo req_id empty return"));
    EXPECT_THAT(linesWith("red_id"), ElementsAre("red_id 11 not found"));
    EXPECT_THAT(linesWith("not corrected"), ElementsAre("response ResResponse::ResponseNO not corrected  in reqid 1",
                                                        "response Unsupported Response not corrected  in reqid 1"));
    EXPECT_THAT(manager.queue(), ElementsAre("1: WaitingStart/ResponseTV"));
}

TEST_F(ResManagerTest, RejectsAnAnswerThatArrivesBeforeItsRequestIsSent) {
    manager.ask({request(0, 0, "dvb://1")});
    EXPECT_EQ(manager.answer(ResponseTV, {info(0, 0, "1")}), -1);
    EXPECT_THAT(linesWith("Wrong response"),
                ElementsAre("Wrong response req_id 1,ResOperation::SendingStart,ResResponse::ResponseTV"));
    EXPECT_THAT(manager.reports, IsEmpty());
    EXPECT_THAT(manager.queue(), ElementsAre("1: SendingStart/ResponseNO WaitingStart/ResponseTV"));
}

TEST_F(ResManagerTest, DoesNotCompleteABundleWhenOneServiceAnswersTwice) {
    manager.ask({request(1, 0, "http://x")});
    manager.work();
    EXPECT_EQ(manager.answer(ResponseTV, {info(1, 0, "1")}), 0);
    EXPECT_EQ(manager.answer(ResponseTV, {info(1, 0, "1")}), 0);
    EXPECT_EQ(manager.answer(ResponseMM, {info(1, 0, "1")}), 0);
    EXPECT_THAT(manager.queue().front(), testing::HasSubstr("WaitingStop"));
    EXPECT_THAT(manager.reports, IsEmpty());
}

TEST_F(ResManagerTest, TreatsThreeAnswersOfTheMmServiceAsThoseOfBoth) {
    manager.ask({request(1, 0, "http://x")});
    manager.work();
    EXPECT_EQ(manager.answer(ResponseMM, {info(1, 0, "1")}), 0);
    EXPECT_EQ(manager.answer(ResponseMM, {info(1, 0, "1")}), 0);
    EXPECT_EQ(manager.answer(ResponseMM, {info(1, 0, "1")}), 1);
}

TEST_F(ResManagerTest, PassesOnASecondAnswerThatComesAfterTheBundleHasEnded) {
    manager.ask({request(1, 0, "dvb://1")});
    manager.work();
    EXPECT_EQ(manager.answer(ResponseTV, {info(1, 0, "1")}), 2);
    EXPECT_EQ(manager.answer(ResponseTV, {info(1, 0, "1")}), 0);
    EXPECT_THAT(manager.reports, ElementsAre("info 1:0=u/0#1", "info 1:0=u/0#1"));
}

TEST_F(ResManagerTest, MarksATerminalForWhichANewerStartIsQueued) {
    manager.ask({request(0, 0, "dvb://1")});
    manager.ask({request(0, 0, "dvb://2")});
    manager.ask({request(0, 0, "http://3"), request(1, 0, stopUri)});
    manager.work();
    EXPECT_EQ(manager.answer(ResponseTV, {info(0, 0, "1"), info(2, 0, "1")}), 2);
    EXPECT_THAT(manager.reports, ElementsAre("info 0:0=u/1#1 2:0=u/0#1"));
    EXPECT_THAT(
        linesWith("A new request"),
        ElementsAre("A new request in livetv request will soon be handled for terminal[type:0 id:0], new URI dvb://2",
                    "A new request in media request will soon be handled for terminal[type:0 id:0], new URI http://3"));
    EXPECT_THAT(linesWith("waiting for handling"), ElementsAre("Number of requests waiting for handling 2"));
}

TEST_F(ResManagerTest, TreatsABundleWithoutListsAsOneThatStartsNothing) {
    const auto bare = std::make_shared<ResRequests_>(nullptr, nullptr, nullptr, nullptr, nullptr,
                                                     std::make_shared<std::string>("bare"));
    bare->resOps.push_back({false, WaitingStart, ResponseTV, SimulatedTime::get().now});
    manager.ask({request(1, 0, stopUri)});
    manager.queueUp(bare);
    manager.queued().front()->resOps.erase(manager.queued().front()->resOps.begin() + 2,
                                           manager.queued().front()->resOps.end());
    manager.work();
    manager.answer(ResponseMM, {info(1, 0, "1")});
    manager.answer(ResponseTV, {info(1, 0, "1")});
    EXPECT_THAT(manager.reports, ElementsAre("info 1:0=u/0#1")) << "no newer start of the terminal is queued";
    SimulatedTime::get().now += 6s;
    manager.work();
    EXPECT_THAT(manager.queue(), IsEmpty());
}

TEST_F(ResManagerTest, AcceptsAStopAnswerWhateverItsResult) {
    manager.ask({request(1, 0, stopUri)});
    manager.work();
    EXPECT_EQ(manager.answer(ResponseMM, {info(1, 0, "1", 99)}), 0);
    EXPECT_EQ(manager.answer(ResponseTV, {info(1, 0, "1", -5)}), 1);
}

TEST_F(ResManagerTest, ReportsTheLastStopAnswerOfABundleThatOnlyStops) {
    manager.ask({request(1, 0, stopUri)});
    auto& steps = manager.queued().front()->resOps;
    steps.erase(steps.begin() + 2, steps.end());
    manager.work();
    EXPECT_EQ(manager.answer(ResponseTV, {info(1, 0, "1", 3)}), 0);
    EXPECT_EQ(manager.answer(ResponseMM, {info(1, 0, "1", 4)}), 2);
    EXPECT_THAT(manager.reports, ElementsAre("info 1:0=u/4#1"));
}

TEST_F(ResManagerTest, AbandonsABundleThatEndsAfterItsStop) {
    manager.ask({request(1, 0, stopUri)});
    manager.queued().front()->resOps[1].endAfterStop = true;
    manager.work();
    manager.ask({request(2, 0, "dvb://1")});
    EXPECT_EQ(manager.answer(ResponseTV, {info(1, 0, "1")}), -1);
    EXPECT_THAT(manager.queue(), ElementsAre("2: SendingStart/ResponseNO WaitingStart/ResponseTV"));
    EXPECT_THAT(manager.reports, IsEmpty());
    EXPECT_THAT(linesWith("abandon"),
                ElementsAre("WaitingStop req_id 1,ResOperation::WaitingStop,ResResponse::ResponseTV "
                            "timeout, abandon it"));
}

TEST_F(ResManagerTest, LogsReceivedAndAwaitedAnswers) {
    manager.ask({request(1, 0, stopUri)});
    manager.work();
    TvServiceInfo_t answer = info(1, 0, "1", 2, "rec://plain/null");
    answer.uuid = "U";
    answer.uuidAncestor = "A";
    manager.answer(ResponseMM, {answer});
    EXPECT_THAT(linesWith("Receiving"),
                ElementsAre("Receiving req_id 1,ResOperation::WaitingStop,ResResponse::ResponseMM, "
                            "all ResResponse::ResponseBOTH"));
    EXPECT_THAT(
        linesWith("Service Info"),
        ElementsAre("ResResponse::ResponseMM Service Info:\nTERMINAL TYPE: 1  |  ID: 0\nRESULT:        2\nURI:    "
                    "       'rec://plain/null'\nUUID:          'U'\nUUID_ANCESTOR: 'A'\n"));
}

} // namespace
