// The resource manager, driven a step at a time in the test's own time.
#include "resource-manager.h"

#include <genrpc/log.h>
#include <host/log-capture.h>
#include <lrt/run-log-agent.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <vector>

using namespace tvservice;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::chrono::steady_clock::time_point simulatedNow{100s};

std::string show(const std::vector<TvServiceReq_t>& requests) {
    std::string text;
    for (const auto& r : requests)
        text +=
            " " + std::to_string(r.terminal.type) + ":" + std::to_string(r.terminal.id) + "=" + r.uri + "#" + r.reqId;
    return text;
}

std::string show(const std::vector<TvServiceInfo_t>& infos) {
    std::string text;
    for (const auto& i : infos)
        text += " " + std::to_string(i.terminal.type) + ":" + std::to_string(i.terminal.id) + "=" + i.uri + "/" +
                std::to_string(i.result) + "#" + i.reqId;
    return text;
}

// A manager without its thread; what it sends and reports is noted as text.
class Manager : public ResManager {
public:
    Manager() : ResManager(WithoutWorker{}) {
        registerInfocb([this](frame::MsgIds&, const frame::TransportInfo&, const std::vector<TvServiceInfo_t>& infos) {
            reports.push_back("info" + show(infos));
            return 0;
        });
    }
    int ReqMM(frame::MsgIds& ids, const frame::TransportInfo& transport,
              const std::vector<TvServiceReq_t>& r) override {
        return note("MM" + show(r), ids, transport);
    }
    int ReqTV(frame::MsgIds& ids, const frame::TransportInfo& transport,
              const std::vector<TvServiceReq_t>& r) override {
        return note("TV" + show(r), ids, transport);
    }

    int ask(const std::vector<TvServiceReq_t>& requests) {
        frame::MsgIds ids{77, 88};
        return tvServiceReq(ids, frame::TransportInfo{5, {1, 2}}, requests);
    }
    // Carries out the front sending step; whether there was one.
    bool work() {
        std::unique_lock lock(resMutex);
        if (onSleep()) return false;
        sendFront(lock, GENRPC_HERE);
        return true;
    }
    void tick() {
        std::lock_guard lock(resMutex);
        timeoutCheck();
    }
    int answer(ResResponse from, const std::vector<TvServiceInfo_t>& infos) {
        frame::MsgIds ids;
        return tvServiceInfo(from, ids, frame::TransportInfo{}, infos);
    }
    // The queue as text: "id: step/awaited ...".
    std::vector<std::string> queue() {
        std::vector<std::string> lines;
        for (const auto& bundle : bundles()) {
            std::string line = bundle.reqId + ":";
            for (const auto& step : bundle.steps)
                line += " " + step.operation.substr(14) + "/" + step.awaited.substr(13);
            lines.push_back(line);
        }
        return lines;
    }
    std::string lists(std::size_t index = 0) {
        const auto& b = *reqQueue[index];
        return "pStop" + show(*b.pStop) + " | pTvStop" + show(*b.pTvStop) + " | pMM" + show(*b.pMM) + " | pTV" +
               show(*b.pTV);
    }

    using ResManager::createReqID;
    using ResManager::reqIdSeq;
    using ResManager::reqQueue;

    std::vector<std::string> sent, reports;

private:
    int note(std::string line, const frame::MsgIds& ids, const frame::TransportInfo& transport) {
        EXPECT_EQ(ids, frame::MsgIds{});
        EXPECT_EQ(transport, frame::TransportInfo{});
        EXPECT_TRUE(resMutex.try_lock()) << "sending with the mutex held";
        resMutex.unlock();
        sent.push_back(std::move(line));
        return 0;
    }
};

TvServiceReq_t request(int type, int id, const std::string& uri, const std::string& reqId = "") {
    TvServiceReq_t r;
    r.terminal = {type, id};
    r.uri = uri;
    r.reqId = reqId;
    return r;
}
TvServiceInfo_t info(int type, int id, const std::string& reqId, int result = 0, const std::string& uri = "u") {
    TvServiceInfo_t i;
    i.terminal = {type, id};
    i.result = result;
    i.uri = uri;
    i.reqId = reqId;
    return i;
}

class ResManagerTest : public testing::Test {
protected:
    ResManagerTest() {
        simulatedNow = std::chrono::steady_clock::time_point{100s};
        resClock = [] { return simulatedNow; };
        // The manager's belief of what the MM service plays outlives a manager: a live start makes it forget a
        // terminal.
        for (int type = 0; type < 10; ++type)
            for (int id = 0; id < 2; ++id) Manager().ask({request(type, id, "dvb://forget")});
        log.emplace(std::vector<std::uint32_t>{genrpc::ManagerLog});
    }
    std::vector<std::string> linesWith(const std::string& part) const {
        std::vector<std::string> found;
        for (const auto& line : log->lines())
            if (line.text.find(part) != std::string::npos)
                found.push_back(
                    line.text.substr(line.text.find("(): ") == std::string::npos ? 0 : line.text.find("(): ") + 4));
        return found;
    }

    Manager manager;
    std::optional<host::LogCapture> log;
};

// ---- request ids ----

TEST_F(ResManagerTest, NumbersBundlesFromOne) {
    for (const char* expected : {"1", "2", "3"}) {
        std::string id;
        EXPECT_EQ(manager.createReqID({request(0, 0, "dvb://1")}, id), 0);
        EXPECT_EQ(id, expected);
    }
}

TEST_F(ResManagerTest, TakesOverACommonIdWithoutCountingIt) {
    std::string id;
    EXPECT_EQ(
        manager.createReqID({request(0, 0, "a", "abc"), request(1, 0, "b", "abc"), request(2, 0, "c", "abc")}, id), 1);
    EXPECT_EQ(id, "abc");
    EXPECT_EQ(manager.createReqID({request(0, 0, "a")}, id), 0);
    EXPECT_EQ(id, "1");
}

TEST_F(ResManagerTest, CountsOnFromZeroAfterTheLastNumber) {
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
    // The stop is queued, so the terminal is forgotten.
    manager.ask({request(1, 0, "dvb://3")});
    EXPECT_EQ(manager.lists(2), "pStop | pTvStop | pMM | pTV 1:0=dvb://3#3");
    EXPECT_THAT(manager.queue()[2], "3: SendingStart/ResponseNO WaitingStart/ResponseTV");
}

TEST_F(ResManagerTest, HasTheTvServicePlayRecordings) {
    for (const std::string uri : {"file:///media/Video USB REC/1.ts", "fsl2://disk/PVR+/2", "FILE:///PVR+"}) {
        Manager fresh;
        fresh.ask({request(1, 0, uri)});
        EXPECT_EQ(fresh.lists(), "pStop 1:0=rec://plain/null#1 | pTvStop | pMM | pTV 1:0=" + uri + "#1");
    }
    EXPECT_EQ(linesWith("hdrplayback").front(), "hdrplayback service url file:///media/Video USB REC/1.ts");
}

TEST_F(ResManagerTest, HasTheMmServicePlayCachedRecordingsAndOtherFiles) {
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

TEST_F(ResManagerTest, LogsTheIdAlsoWhenTheClientGaveIt) {
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

// ---- worker ----

TEST_F(ResManagerTest, SendsStopsThenStartsAndTheMmServiceFirst) {
    manager.ask({request(1, 0, "http://x"), request(2, 0, stopUri)});
    EXPECT_TRUE(manager.work());
    EXPECT_THAT(manager.sent, ElementsAre("MM 1:0=rec://plain/null#1 2:0=rec://plain/null#1",
                                          "TV 1:0=rec://plain/null#1 2:0=rec://plain/null#1"));
    EXPECT_FALSE(manager.work());
    EXPECT_EQ(manager.answer(ResponseMM, {info(1, 0, "1")}), 0);
    EXPECT_EQ(manager.answer(ResponseTV, {info(1, 0, "1")}), 1);
    manager.sent.clear();
    EXPECT_TRUE(manager.work());
    EXPECT_THAT(manager.sent, ElementsAre("MM 1:0=http://x#1", "TV 2:0=rec://plain/null#1"));
    EXPECT_THAT(manager.reports, IsEmpty());
    EXPECT_THAT(linesWith("Sending reqid"),
                ElementsAre("Sending reqid 1, ResOperation::SendingStop, ResResponse::ResponseNO",
                            "Sending reqid 1, ResOperation::SendingStart, ResResponse::ResponseNO"));
}

TEST_F(ResManagerTest, StartsTheNextBundleOnlyWhenTheOneBeforeHasEnded) {
    manager.ask({request(1, 0, "dvb://1")});
    manager.ask({request(2, 0, "dvb://2")});
    manager.work();
    EXPECT_FALSE(manager.work());
    EXPECT_EQ(manager.answer(ResponseTV, {info(1, 0, "1")}), 2);
    EXPECT_TRUE(manager.work());
    EXPECT_THAT(manager.sent, ElementsAre("TV 1:0=dvb://1#1", "TV 2:0=dvb://2#2"));
}

// ---- answers ----

TEST_F(ResManagerTest, GathersTheAnswersOfBothServicesIntoOneReport) {
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

TEST_F(ResManagerTest, PassesOnWhatBelongsToNoBundleUnderWay) {
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

TEST_F(ResManagerTest, RefusesAnAnswerThatComesBeforeItsRequestIsSent) {
    manager.ask({request(0, 0, "dvb://1")});
    EXPECT_EQ(manager.answer(ResponseTV, {info(0, 0, "1")}), -1);
    EXPECT_THAT(linesWith("Wrong response"),
                ElementsAre("Wrong response req_id 1,ResOperation::SendingStart,ResResponse::ResponseTV"));
    EXPECT_THAT(manager.reports, IsEmpty());
    EXPECT_THAT(manager.queue(), ElementsAre("1: SendingStart/ResponseNO WaitingStart/ResponseTV"));
}

TEST_F(ResManagerTest, NeverCompletesByAServiceThatAnswersTwice) {
    manager.ask({request(1, 0, "http://x")});
    manager.work();
    EXPECT_EQ(manager.answer(ResponseTV, {info(1, 0, "1")}), 0);
    EXPECT_EQ(manager.answer(ResponseTV, {info(1, 0, "1")}), 0);
    EXPECT_EQ(manager.answer(ResponseMM, {info(1, 0, "1")}), 0);
    EXPECT_THAT(manager.queue().front(), testing::HasSubstr("WaitingStop"));
    EXPECT_THAT(manager.reports, IsEmpty());
}

TEST_F(ResManagerTest, TakesThreeAnswersOfTheMmServiceForBoth) {
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

TEST_F(ResManagerTest, AcceptsAStopAnswerWhateverItsResult) {
    manager.ask({request(1, 0, stopUri)});
    manager.work();
    EXPECT_EQ(manager.answer(ResponseMM, {info(1, 0, "1", 99)}), 0);
    EXPECT_EQ(manager.answer(ResponseTV, {info(1, 0, "1", -5)}), 1);
}

TEST_F(ResManagerTest, ReportsTheLastStopAnswerOfABundleThatOnlyStops) {
    manager.ask({request(1, 0, stopUri)});
    auto& steps = manager.reqQueue.front()->resOps;
    steps.erase(steps.begin() + 2, steps.end());
    manager.work();
    EXPECT_EQ(manager.answer(ResponseTV, {info(1, 0, "1", 3)}), 0);
    EXPECT_EQ(manager.answer(ResponseMM, {info(1, 0, "1", 4)}), 2);
    EXPECT_THAT(manager.reports, ElementsAre("info 1:0=u/4#1"));
}

TEST_F(ResManagerTest, AbandonsABundleThatEndsAfterItsStop) {
    manager.ask({request(1, 0, stopUri)});
    manager.reqQueue.front()->resOps[1].endAfterStop = true;
    manager.work();
    EXPECT_EQ(manager.answer(ResponseTV, {info(1, 0, "1")}), -1);
    EXPECT_THAT(manager.queue(), IsEmpty());
    EXPECT_THAT(manager.reports, IsEmpty());
    EXPECT_THAT(linesWith("abandon"),
                ElementsAre("WaitingStop req_id 1,ResOperation::WaitingStop,ResResponse::ResponseTV "
                            "timeout, abandon it"));
}

TEST_F(ResManagerTest, LogsWhatComesInAndWhatIsStillAwaited) {
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

// ---- supervision ----

class Supervision : public ResManagerTest {
protected:
    Supervision() {
        char folder[] = "/tmp/run-log-XXXXXX";
        setenv("STATE_DIRECTORY", mkdtemp(folder), 1);
        stateFolder = folder;
    }
    ~Supervision() override { std::filesystem::remove_all(stateFolder); }

    std::string stateFolder;

    // Whether a bundle of these requests, sent and not answered for this long, is still there after a tick.
    bool keptAfter(std::chrono::nanoseconds wait, const std::vector<TvServiceReq_t>& requests) {
        manager.ask(requests);
        manager.work();
        simulatedNow += wait;
        manager.tick();
        return !manager.queue().empty();
    }
};

TEST_F(Supervision, KeepsABundleForExactlyFiveSeconds) {
    EXPECT_TRUE(keptAfter(5s, {request(1, 0, "dvb://1")}));
    EXPECT_THAT(linesWith("currently reqid"),
                ElementsAre("currently reqid 1,ResOperation::WaitingStart,ResResponse::ResponseTV"));
    simulatedNow += 1ns;
    manager.tick();
    EXPECT_THAT(manager.queue(), IsEmpty());
    EXPECT_THAT(linesWith("timeout 5s"),
                ElementsAre("Found reqid 1,ResOperation::WaitingStart,ResResponse::ResponseTV timeout 5s, erase it"));
    EXPECT_THAT(manager.reports, IsEmpty());
}

TEST_F(Supervision, DropsTheStartsOfABundleWhoseStopsAreNotAnswered) {
    EXPECT_FALSE(keptAfter(6s, {request(1, 0, "http://x")}));
    EXPECT_FALSE(manager.work());
    EXPECT_THAT(linesWith("writeTvRunLog"), IsEmpty());
}

TEST_F(Supervision, NeverDropsABundleThatIsNotSent) {
    manager.ask({request(1, 0, "dvb://1")});
    simulatedNow += 1h;
    manager.tick();
    EXPECT_THAT(manager.queue().size(), 1U);
}

TEST_F(Supervision, WritesTheRunLogForALiveStartOnTheMainTerminalOnly) {
    EXPECT_FALSE(keptAfter(6s, {request(0, 1, "dvb://1")}));
    EXPECT_FALSE(keptAfter(6s, {request(0, 0, "http://1")}));
    EXPECT_FALSE(keptAfter(6s, {request(7, 0, "dvb://1"), request(5, 0, "x rec://plain/null")}));
    EXPECT_THAT(linesWith("writeTvRunLog"), IsEmpty());
    EXPECT_FALSE(
        keptAfter(6s, {request(0, 0, "dvb:rec://plain/null"), request(0, 0, "dvb://2"), request(0, 0, "dvb://3")}));
    EXPECT_THAT(linesWith("writeTvRunLog"),
                ElementsAre("writeTvRunLog switch channel failed, reason: timeout for response of "
                            "ResOperation::WaitingStop "));
    const auto records = lrt::RunLogAgentImpl::getInstance().readNewest(10);
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0].logCode, "004001");
    EXPECT_EQ(records[0].errorCode, "00400109");
    EXPECT_EQ(records[0].logKind, 4);
    EXPECT_EQ(records[0].eventId, 9301);
    EXPECT_EQ(records[0].logText,
              "Waiting for response of ResOperation::WaitingStop, ResResponse::ResponseMM, Uri: dvb://2");
}

TEST_F(Supervision, LetsAnAnswerAfterTheLimitThroughUnchanged) {
    EXPECT_FALSE(keptAfter(6s, {request(1, 0, "dvb://1")}));
    EXPECT_EQ(manager.answer(ResponseTV, {info(1, 0, "1")}), 0);
    EXPECT_THAT(manager.reports, ElementsAre("info 1:0=u/0#1"));
}

} // namespace
