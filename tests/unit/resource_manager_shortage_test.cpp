// The resource manager when memory runs out, at every allocation.
#include "app-mmservice-proxy-main.h"
#include "app-tvservice-proxy-main.h"
#include "support/run-log-folder.h"
#include "unit/resource-manager-fixture.h"
#include "unit/shortage-fixture.h"

#include <frame/process.h>

#include <algorithm>
#include <new>
#include <string>
#include <vector>

namespace {

using namespace managertest;
using namespace shortage_test;

constexpr const char* film = "http://films/a-film-whose-address-is-longer-than-what-fits-into-a-string-object";
constexpr const char* channel = "dvb://a-channel-whose-address-is-longer-than-what-fits-into-a-string-object";

// A manager whose sending fails when a test wants.
class ShortManager : public Manager {
public:
    ShortManager() { infoCbList.clear(); } // no callbacks, so reports allocate nothing
    int ReqMM(frame::MsgIds& ids, const frame::TransportInfo& transport,
              const std::vector<TvServiceReq_t>& r) override {
        failIf(mmFails);
        return Manager::ReqMM(ids, transport, r);
    }
    int ReqTV(frame::MsgIds& ids, const frame::TransportInfo& transport,
              const std::vector<TvServiceReq_t>& r) override {
        failIf(tvFails);
        return Manager::ReqTV(ids, transport, r);
    }
    bool mmFails = false, tvFails = false;

private:
    static void failIf(bool fails) {
        if (fails) throw std::bad_alloc();
    }
};

class ManagerWithoutMemory : public testing::TestWithParam<Shortage> {
protected:
    static void SetUpTestSuite() { support::useOwnRunLogFolder(); }

    ManagerWithoutMemory() {
        SimulatedTime::install();
        resetPlayingTerminals();
    }
    template <class Act, class Afterwards> static long failEverywhere(const Act& act, const Afterwards& afterwards) {
        if (GetParam() == Shortage::Passing) vdlDebugSetLevels("off"); // a failed log line does not fail the call
        return failAtEveryAllocation(act, afterwards, GetParam());
    }
    // Whether the manager assumes that the MM service plays on a terminal. Clears that assumption.
    static bool wasAssumedToPlay(int type) {
        Manager asked;
        asked.ask({request(type, 0, channel)});
        return !asked.queued().front()->pStop->empty();
    }
    static void assumePlaying(int type) { Manager().ask({request(type, 0, film)}); }

    ShortManager manager;
    host::LogCapture log{{genrpc::ManagerLog}};
};

TEST_P(ManagerWithoutMemory, AcceptsARequestCompletelyOrNotAtAll) {
    ASSERT_EQ(manager.ask({request(5, 0, channel)}), 0);
    const auto before = manager.queue();
    const std::vector<TvServiceReq_t> requests{request(1, 0, film), request(2, 0, film), request(3, 0, channel)};
    assumePlaying(1);
    assumePlaying(3);
    const long failures = failEverywhere([&] { EXPECT_EQ(manager.ask(requests), 0); },
                                         [&] {
                                             EXPECT_EQ(manager.queue(), before);
                                             EXPECT_TRUE(wasAssumedToPlay(1));
                                             EXPECT_FALSE(wasAssumedToPlay(2));
                                             EXPECT_TRUE(wasAssumedToPlay(3));
                                             assumePlaying(1);
                                             assumePlaying(3);
                                         });
    EXPECT_GT(failures, 10);
    EXPECT_EQ(manager.queue().size(), before.size() + 1);
    EXPECT_TRUE(wasAssumedToPlay(1));
    EXPECT_TRUE(wasAssumedToPlay(2));
    EXPECT_FALSE(wasAssumedToPlay(3));
}

TEST_P(ManagerWithoutMemory, QueuesNoRequestWhoseTerminalsItCannotRemember) {
    vdlDebugSetLevels("off");
    std::vector<TvServiceReq_t> requests;
    for (int id = 0; id < 100; ++id)
        requests.push_back(request(6, id, "http://x")); // more than the manager knows so far
    failEverywhere([&] { EXPECT_EQ(manager.ask(requests), 0); }, [&] { EXPECT_THAT(manager.queued(), IsEmpty()); });
    EXPECT_EQ(manager.queued().size(), 1U);
    vdlDebugSetLevels("warning");
}

TEST_P(ManagerWithoutMemory, KeepsItsAnswersAndAcceptsAFailedOneTheNextTime) {
    manager.ask({request(1, 0, film, "id"), request(2, 0, channel, "id")});
    manager.work();
    manager.answer(ResponseMM, {info(1, 0, "id")});
    manager.answer(ResponseTV, {info(1, 0, "id")});
    manager.work();
    std::vector<std::vector<TvServiceInfo_t>> reports;
    manager.registerInfocb([&](frame::MsgIds&, const frame::TransportInfo&, const std::vector<TvServiceInfo_t>& infos) {
        const EnoughMemory forTheTest;
        reports.push_back(infos);
        return 0;
    });
    const std::string uri(100, 'u');
    const auto waiting = manager.queue();
    failEverywhere([&] { EXPECT_EQ(manager.answer(ResponseMM, {info(1, 0, "id", 0, uri)}), 0); },
                   [&] { EXPECT_EQ(manager.queue(), waiting); });
    const auto halfDone = manager.queue();
    failEverywhere([&] { EXPECT_EQ(manager.answer(ResponseTV, {info(2, 0, "id", 0, uri)}), 2); },
                   [&] { EXPECT_EQ(manager.queue(), halfDone); });
    EXPECT_THAT(manager.queue(), IsEmpty());
    ASSERT_FALSE(reports.empty());
    ASSERT_EQ(reports.front().size(), 2U);
    EXPECT_EQ(reports.front()[0].terminal.type, 1);
    EXPECT_EQ(reports.front()[1].uri, uri);
}

TEST_P(ManagerWithoutMemory, SendsToOneServiceWhenSendingToTheOtherFails) {
    for (const bool mm : {true, false}) {
        (mm ? manager.mmFails : manager.tvFails) = true;
        manager.sent.clear();
        manager.ask({request(1, 0, film)});
        EXPECT_NO_THROW(manager.work());
        EXPECT_EQ(manager.sent.size(), 1U);
        EXPECT_EQ(manager.queue().size(), 1U) << "it waits for answers like any other bundle";
        EXPECT_THAT(show(log.lines()),
                    testing::Contains("1000 resource-manager.cpp:ResMTask(): reqid " +
                                      *manager.queued().front()->pReqId + " not sent: std::bad_alloc"));
        manager.mmFails = manager.tvFails = false;
        SimulatedTime::get().now += 6s;
        manager.work();
        EXPECT_THAT(manager.queue(), IsEmpty());
    }
}

TEST_P(ManagerWithoutMemory, DropsAnOverdueBundleEvenIfItCannotBeRecorded) {
    for (const char* levels : {"trace", "off"}) {
        vdlDebugSetLevels(levels);
        const auto supervise = [&] {
            {
                const EnoughMemory forTheTest;
                manager.ask({request(0, 0, channel)});
                manager.work();
                SimulatedTime::get().now += 6s;
            }
            EXPECT_NO_THROW(manager.supervise());
        };
        const long failures =
            runShortAtEveryAllocation(GetParam(), supervise, [&](bool) { EXPECT_THAT(manager.queue(), IsEmpty()); });
        EXPECT_GT(failures, 1);
    }
    vdlDebugSetLevels("warning");
}

INSTANTIATE_TEST_SUITE_P(InAll, ManagerWithoutMemory, testing::ValuesIn(shortages));

// ---- sending: conversion and proxies, up to their modules ----

// A manager that sends through real proxies. They live as long as the process, because the manager keeps them once
// found.
class SendingManager : public Manager {
public:
    int ReqMM(frame::MsgIds& ids, const frame::TransportInfo& transport,
              const std::vector<TvServiceReq_t>& r) override {
        return ResManager::ReqMM(ids, transport, r); // NOLINT(bugprone-parent-virtual-call): sends, unlike Manager
    }
    int ReqTV(frame::MsgIds& ids, const frame::TransportInfo& transport,
              const std::vector<TvServiceReq_t>& r) override {
        return ResManager::ReqTV(ids, transport, r); // NOLINT(bugprone-parent-virtual-call)
    }
};

template <class Proxy> FakeModule& moduleOf() {
    struct Connected {
        Connected() {
            proxy.attachProcess(*frame::Process::getInstance());
            EXPECT_EQ(proxy.setupDone(), 0);
            proxy.setOmqIOModule(&module);
        }
        FakeModule module;
        Proxy proxy;
    };
    static auto& connected = *new Connected;
    return connected.module;
}

class SendingWithoutMemory : public testing::TestWithParam<Shortage> {
protected:
    SendingWithoutMemory() {
        SimulatedTime::install();
        resetPlayingTerminals();
    }
    unsigned sent() const { return tv.sent() + mm.sent(); }
    unsigned reportedAsNotSent() const {
        const auto lines = log.lines();
        return static_cast<unsigned>(std::count_if(lines.begin(), lines.end(), [](const auto& line) {
            return line.text.find(" not sent: std::bad_alloc") != std::string::npos;
        }));
    }

    const FakeModule &tv = moduleOf<tvservice::Proxy>(), &mm = moduleOf<mmservice::Proxy>();
    SendingManager manager;
    host::LogCapture log{{genrpc::ManagerLog}};
};

TEST_P(SendingWithoutMemory, LosesAllRequestsToOneServiceAndNoneToTheOther) {
    unsigned before = 0, tvBefore = 0, mmBefore = 0, reportedBefore = 0, lost = 0;
    const auto send = [&] {
        {
            const EnoughMemory forTheTest;
            manager.ask({request(1, 0, film), request(2, 0, film)}); // both services receive a stop
            before = sent(), tvBefore = tv.sent(), mmBefore = mm.sent(), reportedBefore = reportedAsNotSent();
        }
        EXPECT_NO_THROW(manager.work());
    };
    const long failures = runShortAtEveryAllocation(GetParam(), send, [&](bool) {
        EXPECT_LE(tv.sent(), tvBefore + 1);
        EXPECT_LE(mm.sent(), mmBefore + 1);
        const unsigned missing = before + 2 - sent();
        if (GetParam() == Shortage::Passing) {
            EXPECT_LE(missing, 1U);
            EXPECT_EQ(reportedAsNotSent() - reportedBefore, missing);
        }
        lost += missing;
        EXPECT_EQ(manager.queue().size(), 1U) << "it waits for answers like any other bundle";
        SimulatedTime::get().now += 6s;
        manager.work();
        EXPECT_THAT(manager.queue(), IsEmpty());
    });
    EXPECT_GT(failures, 5);
    EXPECT_GT(lost, 3U);
}

INSTANTIATE_TEST_SUITE_P(InAll, SendingWithoutMemory, testing::ValuesIn(shortages));

} // namespace
