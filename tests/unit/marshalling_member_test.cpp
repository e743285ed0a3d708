#include "unit/recording-member.h"

#include <frame/io-statistics.h>

namespace {

using namespace frame_test;
using testing::ElementsAre;

TEST(MarshallingMembers, GetTheirModuleAndRegisterHandlersBetweenSetUpAndStart) {
    inOwnProcess([] {
        auto* proxy = new Proxy("P");
        EXPECT_EQ(startMembers({proxy}), 0);
        EXPECT_THAT(trace(), ElementsAre("setupDone P", "handlers P", "start P"));
        EXPECT_NE(proxy->getOmqIOModule(), nullptr);
        const auto statistics = frame::ioStatistics();
        ASSERT_EQ(statistics.size(), 1U);
        EXPECT_EQ(statistics[0].service, "frame-test");
    });
}

TEST(MarshallingMembers, AreRejectedWithoutAServiceName) {
    inOwnProcess([] { EXPECT_EQ(startMembers({new Proxy("P", "", "")}), -22); }, "service");
}

TEST(MarshallingMembers, LeaveNoConnectionBehindWhenTheirArrayFailsToStart) {
    inOwnProcess([] {
        EXPECT_EQ(startMembers({new Proxy("earlier")}), 0);
        for (const char* step : {"setupDone", "handlers", "start"}) {
            auto *first = new Proxy("P"), *second = new Proxy("Q", step);
            EXPECT_EQ(startMembers({first, second}), -5) << step;
            EXPECT_EQ(first->getOmqIOModule(), nullptr) << step;
            EXPECT_EQ(second->getOmqIOModule(), nullptr) << step;
            EXPECT_EQ(frame::ioStatistics().size(), 1U) << step;
        }
        EXPECT_EQ(startMembers({new Proxy("P")}), 0);
        EXPECT_EQ(frame::ioStatistics().size(), 2U);
    });
}

TEST(MarshallingMembers, RunEventsThroughTheirDeliverFunction) {
    inOwnProcess([] {
        auto* proxy = new Proxy("P");
        run([&] {
            startMembers({proxy});
            takeTrace();
            proxy->postEvent([] { trace().push_back("event"); });
            proxy->postEvent(host::stopProcess);
            proxy->scheduleEvents();
            return 0;
        });
        EXPECT_THAT(trace(), ElementsAre("deliver P", "event", "stop P"));
    });
}

TEST(MarshallingMembers, FailToSendWithoutAModuleButCallTheCompletion) {
    Proxy proxy("P");
    const vdl::EndianTable table{};
    int completed = 0;
    EXPECT_EQ(
        proxy.asyncSend(nullptr, frame::MsgIds::none, {1, 2, 3, 4}, nullptr, table, nullptr, [&] { ++completed; }),
        -107);
    EXPECT_EQ(completed, 1);
    EXPECT_EQ(frameOmqIOServiceRegisterMessageHandlerFunction(nullptr, {1, 2, 3, 4}, nullptr, nullptr, table), -107);
}

} // namespace
