// The resource manager's log lines: text, source location, severity and order.
#include "unit/resource-manager-fixture.h"

#include <csignal>

namespace {

using namespace managertest;

const std::string here = "resource-manager.cpp:";

class ManagerLines : public ResManagerTest {};

TEST_F(ManagerLines, FollowABundleFromItsRequestToItsEnd) {
    TvServiceReq_t start = request(1, 0, "http://x");
    start.uuid = "U";
    manager.ask({start});
    EXPECT_THAT(
        lines(),
        ElementsAre("5000 " + here + "tvServiceReq(): Called",
                    "5000 " + here +
                        "tvServiceReq(): Tv Service Req:\nTERMINAL TYPE: 1  |  ID: 0\nURI:           "
                        "'http://x'\nUUID:          'U'",
                    "4000 " + here + "tvServiceReq(): PFM-POWER2:new reqid 1 created",
                    "4000 " + here + "tvServiceReq(): Req size for new reqid 1: pStop 1, pTvStop 1, pMM 1, pTV 0 ",
                    "5000 " + here + "tvServiceReq(): dump the requests detail pstop size 1, pMM size 1, pTV size 0"));

    forgetLines();
    manager.work();
    EXPECT_THAT(lines(), ElementsAre("4000 " + here +
                                     "ResMTask(): Sending reqid 1, ResOperation::SendingStop, "
                                     "ResResponse::ResponseNO"));

    const auto dump = [](const char* from) {
        return "5000 " + here + "tvServiceInfo(): " + from +
               " Service Info:\nTERMINAL TYPE: 1  |  ID: 0\nRESULT:        0\nURI:           'u'\nUUID:          "
               "''\nUUID_ANCESTOR: ''\n";
    };
    forgetLines();
    manager.answer(ResponseMM, {info(1, 0, "1")});
    EXPECT_THAT(lines(),
                ElementsAre("5000 " + here + "tvServiceInfo(): Called", dump("ResResponse::ResponseMM"),
                            "5000 " + here + "notifyInfo(): Called",
                            "4000 " + here +
                                "notifyInfo(): Receiving req_id 1,ResOperation::WaitingStop,ResResponse::ResponseMM, "
                                "all ResResponse::ResponseBOTH"));

    manager.answer(ResponseTV, {info(1, 0, "1")});
    manager.work();
    forgetLines();
    manager.answer(ResponseMM, {info(1, 0, "1"), info(1, 0, "1")});
    EXPECT_THAT(lines(),
                ElementsAre("5000 " + here + "tvServiceInfo(): Called", dump("ResResponse::ResponseMM"),
                            dump("ResResponse::ResponseMM"), "5000 " + here + "notifyInfo(): Called",
                            "4000 " + here +
                                "notifyInfo(): Receiving req_id 1,ResOperation::WaitingStart,ResResponse::ResponseMM, "
                                "all ResResponse::ResponseMM",
                            "4000 " + here + "verifyResult(): Number of requests waiting for handling 0",
                            "4000 " + here + "notifyInfo(): finished req_id 1"));
}

// The last line that an answer causes.
class AnswerLines : public ManagerLines {
protected:
    std::string lineOf(ResResponse from, const std::vector<TvServiceInfo_t>& infos) {
        manager.answer(from, infos);
        return lines().back();
    }
};

TEST_F(AnswerLines, GiveTheReasonWhyAnAnswerIsPassedOn) {
    EXPECT_EQ(lineOf(ResponseTV, {}), "5000 " + here + "tvServiceInfo(): tvServiceInfo empty return ");
    EXPECT_EQ(lineOf(ResponseTV, {info(0, 0, "")}),
              "5000 " + here + "tvServiceInfo(): tvServiceInfo req_id empty return");
    EXPECT_EQ(lineOf(ResponseTV, {info(0, 0, "9")}),
              "5000 " + here + "tvServiceInfo(): currently queue empty, not for us");
    EXPECT_EQ(lineOf(ResponseNO, {info(0, 0, "9")}),
              "1000 " + here + "tvServiceInfo(): response ResResponse::ResponseNO not corrected  in reqid 9");
    manager.ask({request(0, 0, "dvb://1")});
    EXPECT_EQ(lineOf(ResponseTV, {info(0, 0, "9")}), "3000 " + here + "tvServiceInfo(): red_id 9 not found");
}

TEST_F(AnswerLines, GiveTheReasonWhyAnAnswerIsRejected) {
    manager.ask({request(1, 0, stopUri)});
    EXPECT_EQ(
        lineOf(ResponseMM, {info(1, 0, "1")}),
        "1000 " + here + "notifyInfo(): Wrong response req_id 1,ResOperation::SendingStop,ResResponse::ResponseMM");
    manager.queued().front()->resOps[1].endAfterStop = true;
    manager.work();
    EXPECT_EQ(lineOf(ResponseTV, {info(1, 0, "1")}),
              "3000 " + here +
                  "notifyInfo(): WaitingStop req_id 1,ResOperation::WaitingStop,ResResponse::ResponseTV timeout, "
                  "abandon it");
}

TEST_F(ManagerLines, HaveNoSourceLocationWhenTheyNameThePlayingService) {
    manager.ask({request(1, 0, "fsl2://disk/PVR+/2")});
    EXPECT_THAT(lines(), testing::Contains("4000 hdrplayback service url fsl2://disk/PVR+/2"));
    manager.ask({request(1, 0, "fsl2://disk/film.mp4")});
    EXPECT_THAT(lines(), testing::Contains("4000 media service  url fsl2://disk/film.mp4"));
    manager.ask({request(1, 0, "dvb://1")});
    manager.work();
    manager.answer(ResponseMM, {info(1, 0, "1")});
    manager.work();
    forgetLines();
    EXPECT_EQ(manager.answer(ResponseTV, {info(1, 0, "1")}), 2);
    EXPECT_THAT(lines(),
                testing::IsSupersetOf({"4000 " + here + "verifyResult(): Number of requests waiting for handling 2",
                                       std::string("4000 A new request in media request will soon be handled for "
                                                   "terminal[type:1 id:0], new URI fsl2://disk/film.mp4"),
                                       std::string("4000 A new request in livetv request will soon be handled for "
                                                   "terminal[type:1 id:0], new URI dvb://1")}));
}

TEST(ManagerLinesDeathTest, ReportMixedIdsAtTheLevelOfFailures) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto ask = [](const char* level) {
        vdlDebugSetLevels(level);
        Manager().ask({request(0, 0, "a", "abc"), request(1, 0, "b")});
    };
    EXPECT_EXIT(ask("1000"), testing::KilledBySignal(SIGABRT), "createReqID\\(\\): reqid not equal in tvServiceReq");
    EXPECT_EXIT(ask("999"), testing::KilledBySignal(SIGABRT), "^$");
}

} // namespace
