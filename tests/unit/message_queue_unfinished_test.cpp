// Messages that arrive only in part. They must not use up the memory for others, nor hold memory for long.
#include "queue/receive-budget.h"
#include "queue/receive-buffer.h"
#include "support/queue-fixture.h"

#include <host/log-capture.h>

#include <chrono>
#include <memory>
#include <stdexcept>
#include <vector>

namespace queue_test {
namespace {

constexpr std::size_t mebibyte = std::size_t{1} << 20;

class UnfinishedMessage : public MessageQueue {
protected:
    void startServerThatWaits(std::chrono::milliseconds unfinished) {
        limits.unfinished = unfinished;
        startServer();
        hello = validHello();
    }
    // The hello and the beginning of a text message.
    std::string beginning(std::size_t whole, std::size_t part) {
        return hello + frameOf(textMeta, static_cast<std::uint32_t>(whole), std::string(part, 'x'));
    }
    bool othersAreServed() {
        startClient();
        return honestClientServed();
    }

    const host::LogCapture log{{0x0202}};
    std::string hello;
};

TEST_F(UnfinishedMessage, EndsTheConnectionWhenTheRestDoesNotArrive) {
    startServerThatWaits(100ms);
    RawPeer peer(path);
    peer.send(beginning(mebibyte, 1000));
    EXPECT_TRUE(peer.isRejected());
    EXPECT_TRUE(log.waitFor("peer did not finish a message within 100 ms, 1032 bytes of it arrived", 10s));
    EXPECT_EQ(serverStatistics().refused, 1U);
    EXPECT_TRUE(othersAreServed());
}

TEST_F(UnfinishedMessage, EndsTheConnectionWhenAHeaderStaysIncomplete) {
    startServerThatWaits(100ms);
    RawPeer peer(path);
    peer.send(hello + "x");
    EXPECT_TRUE(peer.isRejected());
    EXPECT_EQ(serverStatistics().refused, 1U);
}

TEST_F(UnfinishedMessage, EndsTheConnectionOfAPeerThatSendsSingleBytes) {
    startServerThatWaits(400ms);
    RawPeer peer(path);
    peer.send(beginning(mebibyte, 0));
    EXPECT_TRUE(eventually([&] { return !peer.trySend("x"); }));
    EXPECT_TRUE(log.waitFor("peer did not finish a message", 10s));
}

TEST_F(UnfinishedMessage, DoesNotEndTheConnectionOfAPeerThatFinishesItsMessages) {
    startServerThatWaits(1s);
    RawPeer peer(path);
    const std::string frame = frameOf(numberMeta, 4, words({1}, false));
    peer.send(hello + frame.substr(0, 20));
    const auto end = std::chrono::steady_clock::now() + 2500ms;
    std::size_t finished = 0;
    while (std::chrono::steady_clock::now() < end) { // every send ends in the middle of a message
        peer.send(frame.substr(20) + frame.substr(0, 20));
        ++finished;
        ASSERT_TRUE(eventually([&] { return serverInbox.size() == finished; }));
    }
    EXPECT_EQ(serverStatistics().refused, 0U);
}

TEST_F(UnfinishedMessage, LeavesMemoryForOthersHoweverManyThereAre) {
    startServerThatWaits(1h);
    const std::string part = beginning(host::maximumMessageBytes, 9 * mebibyte);
    std::vector<std::unique_ptr<RawPeer>> peers;
    for (int i = 0; i < 38; ++i) {
        peers.push_back(std::make_unique<RawPeer>(path));
        peers.back()->trySend(part);
    }
    EXPECT_TRUE(othersAreServed());
    EXPECT_TRUE(eventually([&] { return serverStatistics().refused == 37; }));
    EXPECT_TRUE(log.waitFor(
        "the unfinished messages of process " + std::to_string(getpid()) + " need more than their limit of 24 MiB",
        10s));
}

// Otherwise a small message could hold the large buffer of an earlier one.
TEST_F(UnfinishedMessage, HasNoLargeBufferWhenItIsSmall) {
    startServerThatWaits(1h);
    const std::string small = frameOf(numberMeta, 4, words({1}, false));
    std::string large = std::string(9 * mebibyte, 'x');
    const auto whole = static_cast<std::uint32_t>(large.size());
    large = hello + frameOf(unknownMeta, whole, large);
    std::vector<std::unique_ptr<RawPeer>> peers;
    for (std::uint64_t i = 1; i <= 3; ++i) { // each takes more than half of their common limit
        peers.push_back(std::make_unique<RawPeer>(path));
        EXPECT_TRUE(peers.back()->trySend(large + small.substr(0, 20)));
        EXPECT_TRUE(eventually([&] { return serverStatistics().undecodable == i; }));
    }
    EXPECT_EQ(serverStatistics().refused, 0U);
}

using host::io::ReceiveBudget;
using host::io::ReceiveBuffer;

TEST(ReceiveBudget, LimitsAPeerToItsShare) {
    ReceiveBudget budget(1000, 100);
    budget.take("one", 60);
    budget.take("one", 40);
    EXPECT_THROW(budget.take("one", 1), std::runtime_error);
    budget.take("another", 100);
    budget.give("one", 60);
    budget.take("one", 60);
    EXPECT_THROW(budget.take("one", 1), std::runtime_error);
}

TEST(ReceiveBudget, LimitsAllPeersToTheTotal) {
    ReceiveBudget budget(100, 80);
    budget.take("one", 80);
    EXPECT_THROW(budget.take("another", 21), std::runtime_error);
    budget.take("another", 20);
    EXPECT_THROW(budget.take("third", 1), std::runtime_error);
    budget.give("one", 80);
    budget.take("third", 80);
}

TEST(ReceiveBudget, IsEnoughForTheLargestMessageInTheSmallestHeap) {
    ReceiveBudget budget(32 * mebibyte / 4 * 3, ReceiveBuffer::mostTaken());
    EXPECT_NO_THROW(budget.take("one", ReceiveBuffer::mostTaken()));
}

} // namespace
} // namespace queue_test
