// The control application's list of requests: what became of each, and how it shows it.
#include "control/src/request-log.h"
#include "control/src/request-report.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

using namespace control;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using tvservice::BundleStatus;
using tvservice::TvServiceInfo_t;
using tvservice::TvServiceReq_t;
using tvservice::TvServiceTerminal_t;

namespace {

RequestLog::Clock::time_point simulatedNow;

struct Requests : testing::Test {
    Requests() { simulatedNow = RequestLog::Clock::time_point(1h); }

    // The id of a request on terminal 0:0.
    std::string begin(const std::string& uri) { return begin({{0, 0}}, uri); }
    std::string begin(const std::vector<TvServiceTerminal_t>& terminals, const std::string& uri) {
        std::vector<TvServiceReq_t> requests;
        for (const auto& terminal : terminals) {
            requests.emplace_back().terminal = terminal;
            requests.back().uri = uri;
        }
        std::string id = log.begin(requests);
        for (const auto& request : requests) EXPECT_EQ(request.reqId, id);
        return id;
    }
    void answer(const std::string& id, std::int32_t result, const std::string& uri = "dvb://1",
                TvServiceTerminal_t terminal = {}) {
        frame::MsgIds ids;
        log.tvServiceInfo(ids, {}, {{terminal, result, uri, "", "", id}});
    }
    static BundleStatus bundle(const std::string& id, const char* operation, const char* awaited,
                               std::chrono::milliseconds waited) {
        return {id, {{operation, awaited}}, {{0, 0}}, waited};
    }
    // As long as the adapter waits, and until it is certain that nothing has come.
    void lookUntilGivenUp(BundleStatus waiting) {
        for (waiting.waited = 0ms; waiting.waited <= 5250ms; waiting.waited += 250ms) {
            log.look({waiting}, simulatedNow);
            simulatedNow += 250ms;
        }
        for (int i = 0; i < 2; ++i, simulatedNow += 250ms) log.look({}, simulatedNow);
    }
    std::vector<std::string> lines(const std::string& id) { return linesOf(log.find(id).value()); }

    RequestLog log{[] { return simulatedNow; }};
};

TEST_F(Requests, HaveIdsThatCountThem) {
    EXPECT_EQ(begin("dvb://1"), "control-1");
    EXPECT_EQ(begin("dvb://1"), "control-2");
    EXPECT_FALSE(log.find("control-3"));
}

TEST_F(Requests, TellWhatIsShownAndHowLongItTook) {
    const auto id = begin("dvb://1.1.1");
    simulatedNow += 400us;
    answer(id, 0);
    EXPECT_THAT(lines(id), ElementsAre("0:0 shown dvb://1.1.1 (request control-1, 0.4 ms)"));
    EXPECT_EQ(log.find(id)->state, RecordedRequest::State::answered);
}

TEST_F(Requests, HaveNoDurationWhenOnlyTheirAnswersWereSeen) {
    answer("guide-1", 0);
    EXPECT_THAT(lines("guide-1"), ElementsAre("0:0 shown dvb://1 (request guide-1)"));
    EXPECT_TRUE(toJson(log.find("guide-1").value()).at("durationMs").is_null());
}

TEST_F(Requests, TellOfEachTerminal) {
    const auto id = begin({{0, 0}, {1, 0}, {2, 0}, {3, 0}}, "dvb://1");
    simulatedNow += 1500ms;
    frame::MsgIds ids;
    log.tvServiceInfo(
        ids, {},
        {{{2, 0}, 1, "dvb://1", "", "", id}, {{0, 0}, 6, "dvb://1", "", "", id}, {{1, 0}, 77, "dvb://1", "", "", id}});
    EXPECT_THAT(lines(id), ElementsAre("0:0 refused: locked (6), dvb://1 (request control-1, 1.5 s)",
                                       "1:0 refused: unknown (77), dvb://1 (request control-1, 1.5 s)",
                                       "2:0 superseded (1): a newer request for the terminal is queued (request "
                                       "control-1, 1.5 s)",
                                       "3:0 got no result (request control-1, 1.5 s)"));
}

TEST_F(Requests, TellThatATerminalIsStopped) {
    const auto id = begin(tvservice::stopUri);
    simulatedNow += 25ms;
    answer(id, 0, tvservice::stopUri);
    EXPECT_THAT(lines(id), ElementsAre("0:0 stopped (request control-1, 25 ms)"));
}

TEST_F(Requests, TellWhatTheyWaitFor) {
    const auto id = begin("http://a/b");
    EXPECT_THAT(lines(id), ElementsAre("0:0 queued (request control-1)"));
    log.look({bundle(id, "ResOperation::WaitingStop", "ResResponse::ResponseBOTH", 3ms)}, simulatedNow + 10ms);
    EXPECT_THAT(lines(id),
                ElementsAre("0:0 waits for TV service and MM service to answer the stop (request control-1)"));
    log.look({bundle(id, "ResOperation::WaitingStop", "ResResponse::ResponseMM", 4ms)}, simulatedNow + 11ms);
    EXPECT_THAT(lines(id), ElementsAre("0:0 waits for MM service to answer the stop (request control-1)"));
    log.look({bundle(id, "ResOperation::WaitingStart", "ResResponse::ResponseMM", 1ms)}, simulatedNow + 20ms);
    EXPECT_THAT(lines(id), ElementsAre("0:0 waits for MM service to answer the start (request control-1)"));
    const auto request = log.find(id).value();
    ASSERT_THAT(request.steps, SizeIs(2));
    EXPECT_EQ(request.steps[0].begin, 7ms);
    EXPECT_EQ(request.steps[1].begin, 19ms);
}

TEST_F(Requests, ShowTheirStepsWhileTheyHaveNoAnswerOrWhenItTookASecond) {
    const auto id = begin("http://a/b");
    log.look({bundle(id, "ResOperation::WaitingStop", "ResResponse::ResponseBOTH", 3ms)}, simulatedNow + 10ms);
    log.look({bundle(id, "ResOperation::WaitingStart", "ResResponse::ResponseMM", 1ms)}, simulatedNow + 20ms);
    const auto steps =
        ElementsAre("stop after 7.0 ms: awaited TV service and MM service", "start after 19 ms: awaited MM service");
    EXPECT_THAT(stepLinesOf(log.find(id).value()), steps);
    simulatedNow += 1s;
    answer(id, 0, "http://a/b");
    EXPECT_THAT(stepLinesOf(log.find(id).value()), steps);
    const auto quick = begin("http://a/b");
    log.look({bundle(quick, "ResOperation::WaitingStart", "ResResponse::ResponseMM", 1ms)}, simulatedNow + 20ms);
    simulatedNow += 999ms;
    answer(quick, 0, "http://a/b");
    EXPECT_THAT(stepLinesOf(log.find(quick).value()), testing::IsEmpty());
}

TEST_F(Requests, WaitBehindTheFirstOneWithoutAStep) {
    const auto first = begin("dvb://1"), second = begin("dvb://2");
    log.look({bundle(first, "ResOperation::WaitingStart", "ResResponse::ResponseTV", 0ms),
              bundle(second, "ResOperation::SendingStart", "ResResponse::ResponseNO", 0ms)},
             simulatedNow);
    EXPECT_THAT(lines(second), ElementsAre("0:0 queued (request control-2)"));
}

TEST_F(Requests, TellWhoDidNotAnswerWhenTheyAreGivenUp) {
    const auto id = begin("http://a/b");
    lookUntilGivenUp(bundle(id, "ResOperation::WaitingStop", "ResResponse::ResponseMM", 0ms));
    EXPECT_EQ(log.find(id)->state, RecordedRequest::State::givenUp);
    EXPECT_THAT(lines(id),
                ElementsAre("0:0 given up after 5 s: MM service did not answer the stop (request control-1)"));
}

TEST_F(Requests, AreNotGivenUpWhileTheirAnswerIsOnItsWay) {
    const auto id = begin("dvb://1");
    log.look({bundle(id, "ResOperation::WaitingStart", "ResResponse::ResponseTV", 4900ms)}, simulatedNow);
    log.look({}, simulatedNow += 50ms); // answered shortly before the limit, and not delivered yet
    log.look({}, simulatedNow += 5s);
    EXPECT_EQ(log.find(id)->state, RecordedRequest::State::sent);
    answer(id, 0);
    EXPECT_EQ(log.find(id)->state, RecordedRequest::State::answered);
}

TEST_F(Requests, AreGivenUpWhenTheyLeftTheQueueLongAgo) {
    const auto id = begin("dvb://1");
    log.look({}, simulatedNow);
    log.look({}, simulatedNow += 9s);
    EXPECT_EQ(log.find(id)->state, RecordedRequest::State::queued);
    log.look({}, simulatedNow += 2s);
    EXPECT_THAT(lines(id), ElementsAre("0:0 given up: it left the queue without an answer (request control-1)"));
}

TEST_F(Requests, CountAnswersThatComeTooLate) {
    const auto id = begin("dvb://1");
    lookUntilGivenUp(bundle(id, "ResOperation::WaitingStart", "ResResponse::ResponseTV", 0ms));
    answer(id, 0);
    EXPECT_EQ(log.find(id)->state, RecordedRequest::State::givenUp);
    EXPECT_EQ(log.find(id)->lateAnswers, 1U);
}

TEST_F(Requests, OfOtherApplicationsAreSeenInTheQueueAndInAnswers) {
    log.look({bundle("17", "ResOperation::WaitingStart", "ResResponse::ResponseTV", 100ms)}, simulatedNow);
    EXPECT_THAT(lines("17"), ElementsAre("0:0 waits for TV service to answer the start (request 17)"));
    simulatedNow += 2ms;
    answer("17", 0, "dvb://17");
    EXPECT_THAT(lines("17"), ElementsAre("0:0 shown dvb://17 (request 17, 2.0 ms)"));
    answer("zap-1-2-3", 2, "dvb://9", {4, 5});
    EXPECT_THAT(lines("zap-1-2-3"), ElementsAre("4:5 refused: unknown channel (2), dvb://9 (request zap-1-2-3)"));
    EXPECT_STREQ(askerOf("17"), "application");
    EXPECT_STREQ(askerOf("zap-1-2-3"), "zapper");
    EXPECT_STREQ(askerOf("control-1"), "shell");
}

// The queue may have been read before the answer arrived.
TEST_F(Requests, AreNotKnownTwiceWhenTheyAreAnsweredWhileTheQueueIsRead) {
    const auto id = begin("dvb://1");
    const auto taken = simulatedNow;
    simulatedNow += 1ms;
    answer(id, 0);
    log.look({bundle(id, "ResOperation::WaitingStart", "ResResponse::ResponseTV", 0ms)}, taken);
    EXPECT_THAT(log.newest(10), SizeIs(1));
    EXPECT_EQ(log.find(id)->state, RecordedRequest::State::answered);
}

TEST_F(Requests, WithAnIdOfBeforeAreNewOnes) {
    answer("mine", 0);
    log.look({bundle("mine", "ResOperation::WaitingStart", "ResResponse::ResponseTV", 0ms)}, simulatedNow += 1s);
    EXPECT_THAT(log.newest(10), SizeIs(2));
    EXPECT_EQ(log.find("mine")->state, RecordedRequest::State::sent);
}

TEST_F(Requests, ThatTheAdapterDidNotTakeAreForgotten) {
    log.cancel(begin("dvb://1"));
    EXPECT_THAT(log.newest(10), IsEmpty());
}

TEST_F(Requests, IgnoreWhatTheTvServiceReportsWithoutARequest) {
    answer("", 0);
    frame::MsgIds ids;
    log.tvServiceInfo(ids, {}, {});
    EXPECT_THAT(log.newest(10), IsEmpty());
}

TEST_F(Requests, AreBoundedInNumberAndPendingOnesAreKeptLongest) {
    const auto pending = begin("dvb://1");
    for (std::size_t i = 0; i < 2 * RequestLog::mostRequests; ++i) answer("other-" + std::to_string(i), 0);
    EXPECT_THAT(log.newest(10000), SizeIs(RequestLog::mostRequests));
    EXPECT_TRUE(log.find(pending));
    EXPECT_FALSE(log.find("other-0"));
    EXPECT_EQ(log.table().dropped, RequestLog::mostRequests + 1);
}

TEST_F(Requests, AreBoundedInBytesWhateverServicesAndApplicationsSend) {
    const std::string longest(1024 * 1024, 'x');
    std::vector<TvServiceInfo_t> infos;
    for (int id = 0; id < 1000; ++id) infos.push_back({{0, id}, 0, longest.substr(0, 4096), "", "", ""});
    for (int i = 0; i < 300; ++i) {
        infos.front().reqId = std::to_string(i) + longest;
        frame::MsgIds ids;
        log.tvServiceInfo(ids, {}, infos);
    }
    const auto table = log.table();
    EXPECT_GT(table.bytes, RequestLog::mostBytes / 2);
    EXPECT_LE(table.bytes, RequestLog::mostBytes);
    const auto newest = log.newest(1).front();
    EXPECT_THAT(newest.terminals, SizeIs(RequestLog::mostTerminals));
    EXPECT_EQ(newest.moreTerminals, 1000 - RequestLog::mostTerminals);
    std::vector<BundleStatus> queue;
    for (int i = 0; i < 1000; ++i)
        queue.push_back(
            {"q" + std::to_string(i), {{"ResOperation::SendingStart", ""}}, std::vector<TvServiceTerminal_t>(1000)});
    log.look(queue, simulatedNow);
    EXPECT_LE(log.newest(10000).size(), RequestLog::mostRequests);
    EXPECT_LE(log.table().bytes, RequestLog::mostBytes);
}

TEST_F(Requests, AreToldInJsonWithNumbersAndNames) {
    const auto id = begin("dvb://1");
    log.look({bundle(id, "ResOperation::WaitingStart", "ResResponse::ResponseTV", 0ms)}, simulatedNow += 500us);
    simulatedNow += 500us;
    answer(id, 2);
    auto json = toJson(log.find(id).value());
    json["time"] = "then";
    EXPECT_EQ(json.dump(),
              R"json({"request":"control-1","asker":"shell","time":"then","state":"answered",)json"
              R"json("terminals":[{"terminal":"0:0","typeName":"main","uri":"dvb://1","result":2,)json"
              R"json("resultName":"unknown channel"}],)json"
              R"json("moreTerminals":0,"steps":[{"step":"start","awaited":"TV service","beginMs":0.5}],)json"
              R"json("durationMs":1.0,"lateAnswers":0,)json"
              R"json("lines":["0:0 refused: unknown channel (2), dvb://1 (request control-1, 1.0 ms)"]})json");
}

} // namespace
