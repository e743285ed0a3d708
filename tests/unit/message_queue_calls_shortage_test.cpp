// Each call of the message queue when memory runs out: it succeeds or throws, and leaves nothing half done.
#include "support/failing-allocations.h"
#include "support/queue-fixture.h"

#include <host/log-capture.h>
#include <host/message-queue.h>

#include <algorithm>
#include <filesystem>
#include <gtest/gtest.h>
#include <memory>
#include <system_error>
#include <tuple>
#include <vector>

namespace {

using queue_test::eventually;
using queue_test::messages;
using queue_test::numberMeta;
using queue_test::numberTable;
using support::failAtEveryAllocation;
using support::Shortage;

// Without open files below /proc: a thread that starts under the address sanitizer reads one, and this function
// another.
std::size_t descriptors() {
    std::size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code closedMeanwhile;
        const auto target = std::filesystem::read_symlink(entry.path(), closedMeanwhile);
        count += !closedMeanwhile && !target.string().starts_with("/proc/");
    }
    return count;
}

// Before the receiving thread starts, and while it runs.
class QueueCalls : public queue_test::MessageQueue, public testing::WithParamInterface<std::tuple<bool, Shortage>> {
protected:
    void SetUp() override {
        startServer();
        client = std::make_unique<host::MessageQueue>(limits);
        if (std::get<0>(GetParam())) client->start();
        client->withdraw(connect()); // the first connection opens descriptors that all connections share
        atRest = descriptors();
    }
    void expectNoChannel() {
        EXPECT_EQ(client->statistics().size(), 0U);
        EXPECT_EQ(descriptors(), atRest);
    }
    host::QueueChannel& connect() { return client->connectTo("tuner", messages, 64, nullptr); }
    template <class Act, class Afterwards> static long failEverywhere(const Act& act, const Afterwards& afterwards) {
        return failAtEveryAllocation(act, afterwards, std::get<1>(GetParam()));
    }
    static int ignore(const frame::MsgMeta&, const frame::TransportInfo&, const void*, void*) { return 0; }

    const host::LogCapture quiet{{0x0202}};
    std::size_t atRest = 0;
};

TEST_P(QueueCalls, CreateAQueueCompletelyOrNotAtAll) {
    server.reset(); // its thread allocates memory
    client.reset();
    atRest = descriptors();
    const auto make = [this] { const host::MessageQueue queue(limits); };
    make();
    const long blocks = support::blocksHeld;
    const auto nothingLeft = [&] {
        EXPECT_EQ(support::blocksHeld, blocks);
        EXPECT_EQ(descriptors(), atRest);
    };
    EXPECT_GT(failEverywhere(make, nothingLeft), 1);
}

TEST_P(QueueCalls, CreateAConnectionCompletelyOrNotAtAll) {
    EXPECT_GT(failEverywhere([this] { channel = &connect(); }, [this] { expectNoChannel(); }), 1);
    client->open(*channel);
    client->start();
    EXPECT_TRUE(honestClientServed());
}

TEST_P(QueueCalls, OfferAServiceCompletelyOrNotAtAll) {
    const auto serve = [this] { client->serve("radio", messages, 64); };
    const auto nothingOffered = [this] {
        expectNoChannel();
        EXPECT_FALSE(std::filesystem::exists(folder + "/radio.sock"));
    };
    EXPECT_GT(failEverywhere(serve, nothingOffered), 1);
    client->start();
    const queue_test::RawPeer peer(folder + "/radio.sock");
    EXPECT_EQ(queue_test::RawPeer(folder + "/radio.sock").receive(helloSize).size(), helloSize);
}

TEST_P(QueueCalls, OpenAllConnectionsOrNone) {
    const std::vector<host::QueueChannel*> channels{&connect(), &connect()};
    const auto noneOpen = [this] {
        for (const auto& counters : client->statistics()) EXPECT_FALSE(counters.connected);
        EXPECT_EQ(descriptors(), atRest);
    };
    EXPECT_GT(failEverywhere([&] { client->open(channels); }, noneOpen), 0);
    client->start();
    EXPECT_TRUE(eventually([this] {
        const auto counters = client->statistics();
        return counters[0].connected && counters[1].connected;
    }));
}

TEST_P(QueueCalls, BindAHandlerOrFail) {
    channel = &connect();
    int result = 1;
    const auto bind = [&] { result = channel->registerMessageHandler(numberMeta, ignore, nullptr, numberTable); };
    EXPECT_GT(failEverywhere(bind, [] {}), 0);
    EXPECT_EQ(result, 0); // no failed call has bound it
    EXPECT_EQ(channel->registerMessageHandler(numberMeta, ignore, nullptr, numberTable), -17);
}

TEST_P(QueueCalls, StartOrCanStartLater) {
    channel = &connect();
    client->open(*channel);
    failEverywhere([this] { client->start(); }, [] {});
    EXPECT_TRUE(honestClientServed());
}

TEST_P(QueueCalls, ReturnStatisticsOrThrow) {
    connect();
    std::vector<frame::IOStatistics> counters;
    EXPECT_GT(failEverywhere([&] { counters = client->statistics(); }, [&] { EXPECT_TRUE(counters.empty()); }), 0);
    EXPECT_EQ(counters.size(), 1U);
}

TEST_P(QueueCalls, StopWithoutMemory) {
    channel = &connect();
    client->open(*channel);
    client->start();
    ASSERT_TRUE(honestClientServed());
    EXPECT_EQ(failEverywhere([this] { client->stop(); }, [] {}), 0);
    EXPECT_EQ(queue_test::sendNumber(*channel, 1), -108);
}

INSTANTIATE_TEST_SUITE_P(WithAndWithoutAThread, QueueCalls,
                         testing::Combine(testing::Bool(), testing::Values(Shortage::Lasting, Shortage::Passing)));

using QueueToAll = queue_test::MessageQueue;

TEST_F(QueueToAll, SendsToTheClientsForWhomThereIsMemory) {
    const host::LogCapture quiet({0x0202});
    bool enough = false, forSome = false;
    for (long allocations = 0; !enough; ++allocations) {
        ASSERT_LT(allocations, 100);
        client.reset();
        startBoth();
        host::MessageQueue second(limits);
        queue_test::Inbox secondInbox;
        auto& secondChannel = second.connectTo("tuner", messages, 64, nullptr);
        secondInbox.registerWith(secondChannel);
        second.open(secondChannel);
        second.start();
        ASSERT_TRUE(eventually([&] { return offered->clients().size() == 2; }));

        const std::uint32_t number = 1;
        const auto before = clientInbox.size();
        bool threw = false;
        support::allocationsLeft = allocations;
        try {
            EXPECT_EQ(offered->asyncSend({}, numberMeta, nullptr, numberTable, &number, {}), 0);
        } catch (const std::bad_alloc&) {
            threw = true;
        }
        support::allocationsLeft = -1;
        // Without memory, a stream to another host is disconnected, and its message is dropped.
        std::uint64_t expected = 0;
        ASSERT_TRUE(eventually([&] {
            const auto counters = serverStatistics();
            expected = threw ? 0 : 2 - counters.refused - counters.dropped;
            return clientInbox.size() - before + secondInbox.size() == expected;
        }));
        enough = expected == 2;
        forSome = forSome || expected == 1;
    }
    EXPECT_TRUE(forSome);
}

} // namespace
