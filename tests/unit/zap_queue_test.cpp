// The queue of a zapping user's requests: alone, and with the resource manager in simulated time.
#include "unit/resource-manager-fixture.h"

#include <tvservice-adapter/zap-queue.h>

#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <new>
#include <set>
#include <string>
#include <vector>

namespace {

using namespace managertest;

TvServiceReq_t channel(int id, const std::string& uri) { return request(0, id, uri); }

std::string show(const ZapOutcome& outcome) {
    static constexpr const char* kinds[] = {"answered", "dropped", "replaced", "notSent"};
    std::string text = kinds[static_cast<int>(outcome.kind)] + (" " + outcome.request.uri);
    if (outcome.kind == ZapOutcome::Kind::answered) text += " " + std::to_string(outcome.result);
    return text;
}

// The queue with an adapter that the test plays: the requests sent to it, and those it still has.
class ZapQueueTest : public testing::Test {
protected:
    std::vector<std::string> sentUris() const {
        std::vector<std::string> uris;
        uris.reserve(sent.size());
        for (const auto& request : sent) uris.push_back(request.uri);
        return uris;
    }
    void answer(const TvServiceReq_t& request, int result = 0) {
        pending.erase(request.reqId);
        queue.answer({info(request.terminal.type, request.terminal.id, request.reqId, result, request.uri)});
    }
    // The adapter drops all its requests.
    void drop() { pending.clear(); }
    void pass(std::chrono::nanoseconds time) { now += time; }

    std::vector<TvServiceReq_t> sent;
    std::set<std::string> pending; // request ids
    std::vector<std::string> outcomes;
    ZapQueue::Clock::time_point now{100s};
    int sendResult = 0;
    std::function<void()> duringSend, onQuery, onReport;
    ZapQueue queue{{[this](const TvServiceReq_t& request) {
                        if (duringSend) std::exchange(duringSend, nullptr)();
                        if (sendResult != 0) return sendResult;
                        pending.insert(request.reqId);
                        sent.push_back(request);
                        return 0;
                    },
                    [this](const std::string& reqId) {
                        if (onQuery) std::exchange(onQuery, nullptr)();
                        return pending.count(reqId) == 1;
                    },
                    [this] { return now; },
                    [this](const ZapOutcome& outcome) {
                        outcomes.push_back(show(outcome));
                        if (onReport) std::exchange(onReport, nullptr)();
                    }}};
};

TEST_F(ZapQueueTest, SendsTheFirstRequestAtOnce) {
    EXPECT_EQ(queue.want(channel(0, "a")), 0);
    EXPECT_THAT(sentUris(), ElementsAre("a"));
    EXPECT_THAT(outcomes, IsEmpty());
}

TEST_F(ZapQueueTest, PassesOnARequestUnchangedExceptForItsId) {
    TvServiceReq_t asked = channel(3, "a");
    asked.uuid = "u";
    asked.strParamList = {"x", "y"};
    asked.intParam2 = 7;
    asked.reqId = "mine";
    queue.want(asked);
    ASSERT_EQ(sent.size(), 1U);
    EXPECT_NE(sent[0].reqId, "mine");
    asked.reqId = sent[0].reqId;
    EXPECT_EQ(sent[0], asked);
}

TEST_F(ZapQueueTest, EndsOnTheLastOfTwentyQuickZapsAfterTwoRequests) {
    for (int i = 1; i <= 20; ++i) queue.want(channel(0, std::to_string(i)));
    answer(sent.back());
    answer(sent.back());
    EXPECT_THAT(sentUris(), ElementsAre("1", "20"));
    ASSERT_EQ(outcomes.size(), 20U);
    EXPECT_EQ(outcomes.front(), "replaced 2");
    EXPECT_EQ(outcomes[17], "replaced 19");
    EXPECT_EQ(outcomes[18], "answered 1 0");
    EXPECT_EQ(outcomes[19], "answered 20 0");
}

TEST_F(ZapQueueTest, ReportsARejectionByTheServiceAsAnAnswer) {
    queue.want(channel(0, "a"));
    queue.want(channel(0, "b"));
    answer(sent[0], 2);
    EXPECT_THAT(outcomes, ElementsAre("answered a 2"));
    EXPECT_THAT(sentUris(), ElementsAre("a", "b"));
}

TEST_F(ZapQueueTest, UsesTheResultOfItsOwnTerminal) {
    queue.want(channel(1, "a"));
    queue.answer({info(0, 0, sent[0].reqId, 5), info(0, 1, sent[0].reqId, 2)});
    EXPECT_THAT(outcomes, ElementsAre("answered a 2"));
}

TEST_F(ZapQueueTest, UsesTheFirstResultWhenItsOwnTerminalIsMissing) {
    queue.want(channel(0, "a"));
    queue.answer({info(7, 7, sent[0].reqId, 4, "a"), info(8, 8, sent[0].reqId, 5, "a")});
    EXPECT_THAT(outcomes, ElementsAre("answered a 4"));
}

TEST_F(ZapQueueTest, DoesNotAskBeforeTheTimeoutWhetherARequestWasDropped) {
    queue.want(channel(0, "a"));
    bool queried = false;
    onQuery = [&] { queried = true; };
    pass(5s - 1ns);
    queue.look();
    EXPECT_FALSE(queried);
    pass(1ns);
    queue.look();
    EXPECT_TRUE(queried);
}

TEST_F(ZapQueueTest, WaitsForAnOverdueAnswerAsLongAsTheAdapterDoes) {
    queue.want(channel(0, "a"));
    queue.want(channel(0, "b"));
    pass(1h);
    queue.look();
    EXPECT_THAT(sentUris(), ElementsAre("a"));
    answer(sent[0]);
    EXPECT_THAT(sentUris(), ElementsAre("a", "b"));
}

TEST_F(ZapQueueTest, SendsTheNewestRequestOnceThePreviousOneWasDropped) {
    for (const char* uri : {"a", "b", "c"}) queue.want(channel(0, uri));
    pass(6s);
    drop();
    queue.look();
    EXPECT_THAT(sentUris(), ElementsAre("a", "c"));
    EXPECT_THAT(outcomes, ElementsAre("replaced b", "dropped a"));
}

TEST_F(ZapQueueTest, DoesNotMatchALateAnswerToAnotherRequest) {
    queue.want(channel(0, "a"));
    queue.want(channel(0, "b"));
    pass(6s);
    drop();
    queue.look();
    answer(sent[0]);
    queue.want(channel(0, "c"));
    EXPECT_THAT(sentUris(), ElementsAre("a", "b"));
    EXPECT_THAT(outcomes, ElementsAre("dropped a"));
}

TEST_F(ZapQueueTest, IgnoresADuplicateAnswer) {
    for (const char* uri : {"a", "b", "c"}) queue.want(channel(0, uri));
    const auto first = sent[0];
    answer(first);
    answer(first);
    EXPECT_THAT(sentUris(), ElementsAre("a", "c"));
    EXPECT_THAT(outcomes, ElementsAre("replaced b", "answered a 0"));
}

TEST_F(ZapQueueTest, AcceptsAnAnswerWhileItAsksWhetherTheRequestWasDropped) {
    queue.want(channel(0, "a"));
    queue.want(channel(0, "b"));
    pass(5s);
    onQuery = [this] { answer(sent[0]); };
    queue.look();
    EXPECT_THAT(sentUris(), ElementsAre("a", "b"));
    EXPECT_THAT(outcomes, ElementsAre("answered a 0"));
}

TEST_F(ZapQueueTest, IgnoresAnswersToOthers) {
    queue.want(channel(0, "a"));
    queue.answer({});
    queue.answer({info(0, 0, "")});
    queue.answer({info(0, 0, "17")});
    EXPECT_THAT(outcomes, IsEmpty());
}

TEST_F(ZapQueueTest, ServesTerminalsInTheOrderOfTheirRequests) {
    queue.want(channel(0, "a0"));
    queue.want(channel(1, "a1"));
    queue.want(channel(0, "b0"));
    queue.want(channel(2, "a2"));
    queue.want(channel(1, "b1"));
    while (sent.size() < 4) answer(sent.back());
    EXPECT_THAT(sentUris(), ElementsAre("a0", "b1", "b0", "a2"));
}

TEST_F(ZapQueueTest, DistinguishesTerminalsOfOneIdByTheirType) {
    queue.want(channel(0, "a"));
    queue.want(request(0, 1, "b"));
    queue.want(request(1, 1, "c"));
    EXPECT_THAT(outcomes, IsEmpty());
}

TEST_F(ZapQueueTest, HoldsAllTerminalsBackWhileOneIsOverdue) {
    queue.want(channel(0, "lost"));
    for (int i = 0; i < 100; ++i) {
        pass(100ms);
        queue.want(channel(1 + i % 5, std::to_string(i)));
        queue.look();
    }
    EXPECT_THAT(sentUris(), ElementsAre("lost"));
}

TEST_F(ZapQueueTest, RejectsMoreTerminalsThanItCanHold) {
    queue.want(channel(0, "a"));
    for (std::size_t i = 1; i <= ZapQueue::mostWaiting; ++i) EXPECT_EQ(queue.want(channel(int(i), "b")), 0);
    EXPECT_EQ(queue.want(channel(0, "c")), ZapQueue::tooManyWaiting);
    EXPECT_EQ(queue.want(channel(7, "c")), 0); // replaces the request of its terminal
    EXPECT_THAT(outcomes, ElementsAre("replaced b"));
}

TEST_F(ZapQueueTest, ReportsRequestsThatCouldNotBeSentAndContinues) {
    sendResult = -1;
    queue.want(channel(0, "a"));
    EXPECT_THAT(outcomes, ElementsAre("notSent a"));
    sendResult = 0;
    duringSend = [] { throw std::bad_alloc(); };
    queue.want(channel(0, "b"));
    EXPECT_THAT(outcomes, ElementsAre("notSent a", "notSent b"));
    queue.want(channel(0, "c"));
    EXPECT_THAT(sentUris(), ElementsAre("c"));
}

TEST_F(ZapQueueTest, SendsTheNextRequestAfterOneThatCouldNotBeSent) {
    duringSend = [this] {
        queue.want(channel(0, "b"));
        throw std::bad_alloc();
    };
    queue.want(channel(0, "a"));
    EXPECT_THAT(outcomes, ElementsAre("notSent a"));
    EXPECT_THAT(sentUris(), ElementsAre("b"));
}

TEST_F(ZapQueueTest, AsksAgainWhenAskingFails) {
    queue.want(channel(0, "a"));
    pass(6s);
    drop();
    onQuery = [] { throw std::bad_alloc(); };
    queue.look();
    EXPECT_THAT(outcomes, IsEmpty());
    queue.look();
    EXPECT_THAT(outcomes, ElementsAre("dropped a"));
}

TEST_F(ZapQueueTest, KeepsARequestWhoseSendingTakesLongerThanTheTimeout) {
    duringSend = [this] {
        pass(10s);
        queue.look(); // the adapter does not have it yet; that must not count as dropped
    };
    queue.want(channel(0, "a"));
    EXPECT_THAT(outcomes, IsEmpty());
    answer(sent[0]);
    EXPECT_THAT(outcomes, ElementsAre("answered a 0"));
}

TEST_F(ZapQueueTest, AcceptsARequestDuringAReport) {
    onReport = [this] { queue.want(channel(0, "b")); };
    queue.want(channel(0, "a"));
    answer(sent[0]);
    EXPECT_THAT(sentUris(), ElementsAre("a", "b"));
}

TEST_F(ZapQueueTest, DropsTheQueuedRequestOfATerminal) {
    queue.want(channel(0, "a"));
    queue.want(channel(0, "b"));
    queue.want(channel(1, "c"));
    queue.forget({0, 0});
    queue.forget({0, 0});
    EXPECT_THAT(outcomes, ElementsAre("replaced b"));
    answer(sent[0]);
    EXPECT_THAT(sentUris(), ElementsAre("a", "c"));
}

TEST_F(ZapQueueTest, SendsAndReportsNothingOnceItHasEnded) {
    queue.want(channel(0, "a"));
    queue.want(channel(0, "b"));
    queue.end();
    answer(sent[0]);
    pass(6s);
    drop();
    queue.look();
    EXPECT_EQ(queue.want(channel(0, "c")), ZapQueue::hasEnded);
    EXPECT_THAT(sentUris(), ElementsAre("a"));
    EXPECT_THAT(outcomes, IsEmpty());
    EXPECT_FALSE(queue.waitToLook(1h));
}

TEST_F(ZapQueueTest, ReportsNothingOfASendThatFailsWhenItHasEndedMeanwhile) {
    duringSend = [&] {
        queue.end();
        sendResult = -1;
    };
    queue.want(channel(0, "a"));
    EXPECT_THAT(outcomes, IsEmpty());
}

TEST(ZapQueueIds, DifferBetweenQueues) {
    std::set<std::string> ids;
    const auto note = [&](const TvServiceReq_t& request) {
        ids.insert(request.reqId);
        return -1;
    };
    for (int i = 0; i < 3; ++i) {
        ZapQueue queue{{note, {}, ZapQueue::Clock::now, {}}};
        queue.want(channel(0, "a"));
        queue.want(channel(0, "b"));
    }
    EXPECT_EQ(ids.size(), 6U);
}

TEST(ZapQueueIds, CountTheRequestsOfAQueueAndShowNoAddress) {
    std::vector<std::string> ids;
    ZapQueue queue{{[&](const TvServiceReq_t& request) {
                        ids.push_back(request.reqId);
                        return -1;
                    },
                    {},
                    ZapQueue::Clock::now,
                    {}}};
    queue.want(channel(0, "a"));
    queue.want(channel(0, "b"));
    ASSERT_EQ(ids.size(), 2U);
    EXPECT_THAT(ids[0], testing::MatchesRegex("zap-[0-9]+-[0-9]+-1"));
    EXPECT_EQ(ids[1], ids[0].substr(0, ids[0].size() - 1) + "2");
    EXPECT_THAT(ids[0], testing::Not(testing::HasSubstr(std::to_string(reinterpret_cast<std::uintptr_t>(&queue)))));
    EXPECT_LE(ids[0].size(), std::string("zap-4294967295-1000-1").size());
}

// The queue with the resource manager. Time advances tick by tick. In each tick the worker may work and the queue
// checks its requests.
class ZapsOverTheManager : public ResManagerTest {
protected:
    static constexpr auto tick = 250ms;

    ZapsOverTheManager() {
        manager.registerInfocb(
            [this](frame::MsgIds&, const frame::TransportInfo&, const std::vector<TvServiceInfo_t>& infos) {
                queue.answer(infos);
                return 0;
            });
    }

    // Simulates this much time. Each tick begins with a call of action.
    void play(
        std::chrono::milliseconds time, const std::function<void()>& action = [] {}) {
        for (const auto end = now() + time; now() < end;) {
            // The worker waits a second, which is four ticks. A new request restarts the second.
            action();
            queue.look();
            while (manager.hasSomethingToSend()) manager.work();
            SimulatedTime::get().now += tick;
            quiet = requested ? 0ms : quiet + tick;
            requested = false;
            if (quiet < 1s) continue;
            quiet = 0ms;
            manager.work(); // the second is over, so the worker checks the clock
        }
    }
    static std::chrono::steady_clock::time_point now() { return SimulatedTime::get().now; }
    void answerFront() {
        ASSERT_FALSE(manager.queued().empty());
        const auto request = manager.queued().front()->pTV->front();
        manager.answer(ResponseTV, {info(request.terminal.type, request.terminal.id, request.reqId)});
    }

    class WaitingManager : public Manager {
    public:
        bool hasSomethingToSend() {
            const thread_safety::LockGuard lock(resMutex);
            return !onSleep();
        }
    };
    WaitingManager manager;
    bool requested = false; // in this tick
    std::chrono::milliseconds quiet{};
    std::vector<std::string> outcomes;
    ZapQueue queue{{[this](const TvServiceReq_t& request) {
                        requested = true;
                        return manager.ask({request});
                    },
                    [this](const std::string& reqId) {
                        for (const auto& bundle : manager.bundles())
                            if (bundle.reqId == reqId) return true;
                        return false;
                    },
                    [] { return now(); }, [this](const ZapOutcome& outcome) { outcomes.push_back(show(outcome)); }}};
};

TEST_F(ZapsOverTheManager, ALostAnswerCostsLessThanSevenAndAHalfSecondsHoweverFastAUserZaps) {
    const auto start = now();
    queue.want(channel(0, "lost"));
    int zaps = 0;
    while (manager.sent.size() < 2 && now() < start + 1min)
        play(tick, [&] {
            for (int terminal = 0; terminal < 5; ++terminal) queue.want(channel(terminal, std::to_string(++zaps)));
        });
    EXPECT_LT(now() - start, 7500ms);
    EXPECT_THAT(outcomes, testing::Contains("dropped lost"));
}

TEST_F(ZapsOverTheManager, WithoutZapsALostAnswerIsAwaitedAsLongAsRequestsCome) {
    manager.ask({channel(0, "lost")});
    play(60s, [&] {
        requested = true;
        manager.ask({channel(0, "next")});
    });
    EXPECT_EQ(manager.sent.size(), 1U);
    EXPECT_EQ(manager.queue().size(), 241U);
}

TEST_F(ZapsOverTheManager, AStopAfterZapsIsExecutedLast) {
    queue.want(channel(0, "dvb://1"));
    queue.want(channel(0, "dvb://2"));
    queue.want(channel(0, stopUri));
    play(tick);
    answerFront();
    play(tick);
    ASSERT_EQ(manager.sent.size(), 3U); // a stop is sent to both services
    EXPECT_THAT(manager.sent[1], testing::HasSubstr("MM 0:0=rec://plain/null"));
    EXPECT_THAT(manager.sent[2], testing::HasSubstr("TV 0:0=rec://plain/null"));
}

} // namespace
