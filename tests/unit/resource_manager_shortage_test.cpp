// The resource manager when memory runs out, at every allocation.
#include "support/failing-allocations.h"
#include "support/run-log-folder.h"
#include "unit/resource-manager-fixture.h"

#include <new>
#include <string>
#include <vector>

namespace {

using namespace managertest;
using support::EnoughMemory;
using support::failAtEveryAllocation;

constexpr const char* film = "http://films/a-film-whose-address-is-longer-than-what-fits-into-a-string-object";
constexpr const char* channel = "dvb://a-channel-whose-address-is-longer-than-what-fits-into-a-string-object";

// Its sendings fail as often as a test wants.
class ShortManager : public Manager {
public:
    ShortManager() { infoCbList.clear(); } // reports take no memory
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

class ManagerWithoutMemory : public testing::Test {
protected:
    static void SetUpTestSuite() { support::keepRunLogInAFolderOfItsOwn(); }

    ManagerWithoutMemory() {
        SimulatedTime::install();
        forgetWhatPlays();
    }
    // Whether the MM service is believed to play on a terminal, which it is from then on no more.
    static bool wasBelievedToPlay(int type) {
        Manager asked;
        asked.ask({request(type, 0, channel)});
        return !asked.reqQueue.front()->pStop->empty();
    }
    static void believe(int type) { Manager().ask({request(type, 0, film)}); }

    ShortManager manager;
    host::LogCapture log{{genrpc::ManagerLog}};
};

TEST_F(ManagerWithoutMemory, TakesARequestWholeOrNotAtAll) {
    ASSERT_EQ(manager.ask({request(5, 0, channel)}), 0);
    const auto before = manager.queue();
    const std::vector<TvServiceReq_t> requests{request(1, 0, film), request(2, 0, film), request(3, 0, channel)};
    believe(1);
    believe(3);
    const long failures = failAtEveryAllocation([&] { EXPECT_EQ(manager.ask(requests), 0); },
                                                [&] {
                                                    EXPECT_EQ(manager.queue(), before);
                                                    EXPECT_TRUE(wasBelievedToPlay(1));
                                                    EXPECT_FALSE(wasBelievedToPlay(2));
                                                    EXPECT_TRUE(wasBelievedToPlay(3));
                                                    believe(1);
                                                    believe(3);
                                                });
    EXPECT_GT(failures, 10);
    EXPECT_EQ(manager.queue().size(), before.size() + 1);
    EXPECT_TRUE(wasBelievedToPlay(1));
    EXPECT_TRUE(wasBelievedToPlay(2));
    EXPECT_FALSE(wasBelievedToPlay(3));
}

TEST_F(ManagerWithoutMemory, QueuesNoRequestWhoseTerminalsItCannotRemember) {
    vdlDebugSetLevels("off");
    std::vector<TvServiceReq_t> requests;
    for (int id = 0; id < 100; ++id) requests.push_back(request(6, id, "http://x")); // more than are known so far
    failAtEveryAllocation([&] { EXPECT_EQ(manager.ask(requests), 0); },
                          [&] { EXPECT_THAT(manager.reqQueue, IsEmpty()); });
    EXPECT_EQ(manager.reqQueue.size(), 1U);
    vdlDebugSetLevels("warning");
}

TEST_F(ManagerWithoutMemory, KeepsTheAnswersThatItHasAndTakesTheOneItCouldNotTakeTheNextTime) {
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
    failAtEveryAllocation([&] { EXPECT_EQ(manager.answer(ResponseMM, {info(1, 0, "id", 0, uri)}), 0); },
                          [&] { EXPECT_EQ(manager.queue(), waiting); });
    const auto halfDone = manager.queue();
    failAtEveryAllocation([&] { EXPECT_EQ(manager.answer(ResponseTV, {info(2, 0, "id", 0, uri)}), 2); },
                          [&] { EXPECT_EQ(manager.queue(), halfDone); });
    EXPECT_THAT(manager.queue(), IsEmpty());
    ASSERT_FALSE(reports.empty());
    ASSERT_EQ(reports.front().size(), 2U);
    EXPECT_EQ(reports.front()[0].terminal.type, 1);
    EXPECT_EQ(reports.front()[1].uri, uri);
}

TEST_F(ManagerWithoutMemory, SendsToTheOneServiceWhatItCouldNotSendToTheOther) {
    for (const bool mm : {true, false}) {
        (mm ? manager.mmFails : manager.tvFails) = true;
        manager.sent.clear();
        manager.ask({request(1, 0, film)});
        EXPECT_NO_THROW(manager.work());
        EXPECT_EQ(manager.sent.size(), 1U);
        EXPECT_EQ(manager.queue().size(), 1U) << "it waits for answers like any other";
        EXPECT_THAT(show(log.lines()),
                    testing::Contains("1000 resource-manager.cpp:ResMTask(): reqid " +
                                      *manager.reqQueue.front()->pReqId + " not sent: std::bad_alloc"));
        manager.mmFails = manager.tvFails = false;
        SimulatedTime::get().now += 6s;
        manager.work();
        EXPECT_THAT(manager.queue(), IsEmpty());
    }
}

TEST_F(ManagerWithoutMemory, DropsAnOverdueBundleAlsoWhenItCannotBeRecorded) {
    for (const char* levels : {"trace", "off"}) {
        vdlDebugSetLevels(levels);
        for (long allocations = 0; allocations < 20; ++allocations) {
            manager.ask({request(0, 0, channel)});
            manager.work();
            SimulatedTime::get().now += 6s;
            support::allocationsLeft = allocations;
            EXPECT_NO_THROW(manager.supervise());
            support::allocationsLeft = -1;
            EXPECT_THAT(manager.queue(), IsEmpty());
        }
    }
    vdlDebugSetLevels("warning");
}

} // namespace
