// The message queue with low limits.
#include "support/queue-fixture.h"

#include <host/log-capture.h>

#include <algorithm>
#include <cstdint>
#include <gtest/gtest.h>
#include <numeric>
#include <utility>
#include <vector>

namespace queue_test {
namespace {

class SmallQueue : public MessageQueue, public testing::WithParamInterface<std::size_t> {
protected:
    SmallQueue() { limits.messages = GetParam(); }
    ~SmallQueue() override {
        client.reset();
        server.reset();
    }
    std::vector<std::uint32_t> received() {
        std::lock_guard lock(serverInbox.mutex);
        return serverInbox.numbers;
    }
    static std::vector<std::uint32_t> numbersTo(std::size_t count) {
        std::vector<std::uint32_t> numbers(count);
        std::iota(numbers.begin(), numbers.end(), 0U);
        return numbers;
    }
    const host::LogCapture log; // hides the expected warnings
};

INSTANTIATE_TEST_SUITE_P(WithRoomFor, SmallQueue, testing::Values(1, 2, 10),
                         [](const auto& test) { return std::to_string(test.param); });

class CrowdedQueue : public MessageQueue {
protected:
    const host::LogCapture log; // hides the expected warnings
};

// Otherwise every client could hold the memory of a whole queue.
TEST_F(CrowdedQueue, LimitsTheQueuedBytesOfAllClientsAndReservesAPartForEach) {
    constexpr std::size_t silent = 8, textBytes = 512 * 1024;
    limits.bytes = 4 * 1024 * 1024;
    startServer();
    std::vector<std::unique_ptr<RawPeer>> peers;
    for (std::size_t i = 0; i < silent; ++i) {
        peers.push_back(std::make_unique<RawPeer>(path));
        peers.back()->send(validHello());
    }
    ASSERT_TRUE(eventually([&] { return offered->clients().size() == silent; }));
    while (sendText(*offered, textBytes, 'x') == 0) {
    }
    const std::size_t all = 4 * limits.bytes, each = 1024 * 1024;
    EXPECT_LE(serverStatistics().queued, (all + silent * each) / textBytes);
    EXPECT_GE(serverStatistics().queued, all / textBytes - 1);
    startClient();
    ASSERT_TRUE(eventually([&] { return clientStatistics().connected && offered->clients().size() > silent; }));
    EXPECT_EQ(0, sendText(*offered, textBytes, 'x'));
    EXPECT_TRUE(eventually([&] { return clientInbox.size() == 1; }));
}

// Otherwise a client with many queued notifications would never receive the answers to its requests.
TEST_F(CrowdedQueue, LeavesRoomForAnswersBesideNotifications) {
    limits.messages = 80;
    limits.bytes = 4 * 1024 * 1024;
    // The length of a text, and the number of texts that all clients may be sent while one of them reads nothing.
    constexpr std::pair<std::size_t, std::uint64_t> sizes[] = {{16, 70}, {256 * 1024, 14}};
    for (const auto& [textBytes, toAll] : sizes) {
        startServer();
        RawPeer stalled(path);
        stalled.send(validHello());
        ASSERT_TRUE(eventually([&] { return offered->clients().size() == 1; }));
        const frame::TransportInfo toIt{offered->clients().front(), {}};
        while (sendText(*offered, textBytes, 'x') == 0) {
        }
        EXPECT_LE(serverStatistics().queued, toAll);
        EXPECT_EQ(0, sendText(*offered, textBytes, 'x', &toIt)) << textBytes;
        while (sendText(*offered, textBytes, 'x', &toIt) == 0) {
        }
        EXPECT_GT(serverStatistics().queued, toAll);
    }
}

TEST_P(SmallQueue, QueuesAsManyMessagesAsFitAndAcceptsMoreOnceTheyAreSent) {
    startClient();
    for (std::uint32_t i = 0; i < GetParam(); ++i) EXPECT_EQ(0, sendNumber(*channel, i));
    for (int i = 0; i < 3; ++i) EXPECT_EQ(-11, sendNumber(*channel, 1000));
    EXPECT_EQ(GetParam(), clientStatistics().queued);
    startServer();
    ASSERT_TRUE(eventually([&] { return serverInbox.size() == GetParam() && clientStatistics().queued == 0; }));
    for (std::size_t i = 0; i < GetParam(); ++i)
        EXPECT_EQ(0, sendNumber(*channel, static_cast<std::uint32_t>(GetParam() + i)));
    ASSERT_TRUE(eventually([&] { return serverInbox.size() == 2 * GetParam(); }));
    EXPECT_EQ(numbersTo(2 * GetParam()), received());
    EXPECT_EQ(3U, clientStatistics().refused);
    EXPECT_EQ(2 * GetParam(), clientStatistics().sent);
}

TEST_P(SmallQueue, DeliversAllAcceptedMessagesInOrderToASlowService) {
    startBoth();
    std::uint32_t accepted = 0;
    while (accepted < 20000)
        if (sendNumber(*channel, accepted) == 0) ++accepted;
    ASSERT_TRUE(eventually([&] { return serverInbox.size() == accepted; }));
    EXPECT_EQ(numbersTo(accepted), received());
    EXPECT_EQ(accepted, clientStatistics().sent);
    EXPECT_EQ(0U, clientStatistics().dropped);
}

TEST_P(SmallQueue, ServesOthersBesideAClientThatHasStoppedReading) {
    startBoth();
    RawPeer stalled(path);
    stalled.send(validHello() + frameOf(numberMeta, 4, words({1}, false)));
    ASSERT_TRUE(eventually([&] { return serverInbox.size() == 1; }));
    constexpr std::size_t count = 40; // half a megabyte each: more than a socket and the queue hold
    for (std::size_t i = 1; i <= count; ++i) {
        EXPECT_EQ(0, sendText(*offered, 512 * 1024, 'x'));
        ASSERT_TRUE(eventually([&] { return clientInbox.size() == i; }));
    }
    EXPECT_GT(serverStatistics().refused, 0U);
    EXPECT_LE(serverStatistics().queued, GetParam());
    EXPECT_TRUE(honestClientServed());
}

} // namespace
} // namespace queue_test
