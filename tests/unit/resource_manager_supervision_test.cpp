// How the manager handles bundles that are not answered in time.
#include "support/run-log-folder.h"
#include "unit/resource-manager-fixture.h"

#include <lrt/run-log-agent.h>

#include <atomic>
#include <thread>

namespace {

using namespace managertest;

class Supervision : public ResManagerTest {
protected:
    static void SetUpTestSuite() { support::useOwnRunLogFolder(); }

    static inline lrt::RunLogAgentImpl& runLog = lrt::RunLogAgentImpl::getInstance();
    const std::size_t recordsBefore = allRecords().size();

    static std::vector<lrt::RunLogRecord> allRecords() {
        support::waitForTheRunLog();
        return runLog.readNewest(1000);
    }
    // The records of this test, newest first.
    std::vector<lrt::RunLogRecord> records() const {
        auto newest = allRecords();
        newest.resize(newest.size() - recordsBefore);
        return newest;
    }
    static void pass(std::chrono::nanoseconds time) { SimulatedTime::get().now += time; }
    // Whether a bundle of these requests, sent and unanswered for this long, is still queued after the next check.
    bool keptAfter(std::chrono::nanoseconds wait, const std::vector<TvServiceReq_t>& requests) {
        manager.ask(requests);
        EXPECT_TRUE(manager.work());
        pass(wait);
        EXPECT_FALSE(manager.work());
        return !manager.queue().empty();
    }
};

TEST_F(Supervision, KeepsABundleForExactlyFiveSeconds) {
    EXPECT_TRUE(keptAfter(5s, {request(1, 0, "dvb://1")}));
    EXPECT_THAT(linesWith("currently reqid"),
                ElementsAre("currently reqid 1,ResOperation::WaitingStart,ResResponse::ResponseTV"));
    pass(1ns);
    EXPECT_FALSE(manager.work());
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

TEST_F(Supervision, ReportsHowLongAnswersHaveBeenAwaitedAndForWhichTerminals) {
    manager.ask({request(1, 0, "dvb://1"), request(2, 3, "http://x")});
    manager.ask({request(4, 0, "dvb://1")});
    EXPECT_EQ(manager.bundles()[0].waited, 0ms);
    EXPECT_TRUE(manager.work());
    pass(1500us);
    EXPECT_EQ(manager.bundles()[0].waited, 1ms);
    pass(40s);
    EXPECT_EQ(manager.bundles()[0].waited, 40001ms);
    EXPECT_EQ(manager.bundles()[1].waited, 0ms);
    std::string terminals;
    for (const auto& bundle : manager.bundles())
        for (const auto& terminal : bundle.terminals) terminals += show(terminal);
    EXPECT_EQ(terminals, " 2:3= 1:0= 4:0=");
}

TEST_F(Supervision, RestartsItsTimerWhenTheStartsAreSent) {
    manager.ask({request(1, 0, "http://x")});
    EXPECT_TRUE(manager.work());
    pass(4s);
    manager.answer(ResponseMM, {info(1, 0, "1")});
    manager.answer(ResponseTV, {info(1, 0, "1")});
    EXPECT_EQ(manager.bundles()[0].waited, 0ms);
    EXPECT_TRUE(manager.work());
    pass(1s);
    EXPECT_EQ(manager.bundles()[0].waited, 1s);
}

TEST_F(Supervision, DropsNothingWhileRequestsKeepComing) {
    manager.ask({request(1, 0, "dvb://lost")});
    EXPECT_TRUE(manager.work());
    for (int i = 0; i < 120; ++i)
        SimulatedTime::get().duringWaits.push_back([this] {
            pass(500ms);
            manager.ask({request(2, 0, "dvb://next")});
        });
    pass(0s);
    EXPECT_FALSE(manager.work()); // the first wait that lasts a whole second
    EXPECT_EQ(manager.queue().size(), 120U);
    EXPECT_THAT(linesWith("timeout 5s"), testing::SizeIs(1));
}

TEST_F(Supervision, NeverDropsABundleThatIsNotSent) {
    manager.ask({request(1, 0, "dvb://1")});
    pass(1h);
    manager.supervise();
    EXPECT_THAT(manager.queue(), ElementsAre("1: SendingStart/ResponseNO WaitingStart/ResponseTV"));
    EXPECT_THAT(lines().back(), "5000 resource-manager.cpp:timeoutCheck(): Called ");
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
    const auto written = records();
    ASSERT_EQ(written.size(), 1U);
    EXPECT_EQ(written[0].logCode, "004001");
    EXPECT_EQ(written[0].errorCode, "00400109");
    EXPECT_EQ(written[0].logKind, 4);
    EXPECT_EQ(written[0].eventId, 9301);
    EXPECT_EQ(written[0].logText,
              "Waiting for response of ResOperation::WaitingStop, ResResponse::ResponseMM, Uri: dvb://2");
}

TEST_F(Supervision, PassesOnAnAnswerAfterTheTimeoutUnchanged) {
    EXPECT_FALSE(keptAfter(6s, {request(1, 0, "dvb://1")}));
    EXPECT_EQ(manager.answer(ResponseTV, {info(1, 0, "1")}), 0);
    EXPECT_THAT(manager.reports, ElementsAre("info 1:0=u/0#1"));
}

TEST_F(Supervision, ChecksOnlyTheFrontBundle) {
    manager.ask({request(1, 0, "dvb://1")});
    EXPECT_TRUE(manager.work());
    pass(4s);
    manager.ask({request(2, 0, "dvb://2")});
    pass(2s);
    EXPECT_FALSE(manager.work());
    EXPECT_THAT(manager.queue(), ElementsAre("2: SendingStart/ResponseNO WaitingStart/ResponseTV"));
    EXPECT_TRUE(manager.work()); // in the next cycle, and with its own five seconds
    pass(5s);
    EXPECT_FALSE(manager.work());
    EXPECT_THAT(manager.queue(), ElementsAre("2: WaitingStart/ResponseTV"));
}

TEST_F(Supervision, LogsEveryStepAtItsSeverity) {
    EXPECT_FALSE(manager.work());
    manager.ask({request(0, 0, "dvb://1", "main")});
    EXPECT_TRUE(manager.work());
    forgetLines();
    EXPECT_FALSE(manager.work());
    pass(5s + 1ns);
    EXPECT_FALSE(manager.work());
    EXPECT_THAT(lines(),
                ElementsAre("5000 resource-manager.cpp:timeoutCheck(): Called ",
                            "5000 resource-manager.cpp:timeoutCheck(): currently reqid "
                            "main,ResOperation::WaitingStart,ResResponse::ResponseTV",
                            "5000 resource-manager.cpp:timeoutCheck(): Called ",
                            "3000 resource-manager.cpp:timeoutCheck(): Found reqid "
                            "main,ResOperation::WaitingStart,ResResponse::ResponseTV timeout 5s, erase it",
                            "3000 resource-manager.cpp:timeoutCheck(): writeTvRunLog switch channel failed, reason: "
                            "timeout for response of ResOperation::WaitingStart "));
}

TEST_F(Supervision, WritesTheRunLogWhileAnotherThreadInspectsTheQueue) {
    constexpr int rounds = 20;
    std::atomic<bool> done{false}, hasLooked{false};
    std::thread reader([&] {
        while (!done) {
            const auto queue = manager.queue();
            EXPECT_LE(queue.size(), 1U);
            for (const std::string& bundle : queue) EXPECT_THAT(bundle, testing::HasSubstr("WaitingStart/ResponseTV"));
            hasLooked = true;
        }
    });
    while (!hasLooked) std::this_thread::yield();
    for (int round = 0; round < rounds; ++round)
        EXPECT_FALSE(keptAfter(6s, {request(0, 0, "dvb://" + std::to_string(round))}));
    done = true;
    reader.join();
    const auto written = records();
    ASSERT_EQ(written.size(), static_cast<std::size_t>(rounds));
    for (int round = 0; round < rounds; ++round)
        EXPECT_EQ(written[static_cast<std::size_t>(rounds - 1 - round)].logText,
                  "Waiting for response of ResOperation::WaitingStart, ResResponse::ResponseTV, Uri: dvb://" +
                      std::to_string(round));
}

} // namespace
