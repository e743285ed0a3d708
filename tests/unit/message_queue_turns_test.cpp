// A service that one client floods with messages while others send requests.
#include "support/queue-fixture.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <future>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

namespace queue_test {
namespace {

// Blocks the receiving thread at each number until released, and records the sender. Then notifies all clients.
struct HeldHandler {
    static int take(const frame::MsgMeta&, const frame::TransportInfo& transport, const void*, void* context) {
        auto& self = *static_cast<HeldHandler*>(context);
        std::unique_lock lock(self.mutex);
        self.takers.push_back(transport.connection);
        changes.notify();
        self.goOn.wait(lock, [&] { return self.released; });
        if (self.toAll) sendText(*self.toAll, 4 * 1024, 'x');
        for (const auto end = std::chrono::steady_clock::now() + self.work; std::chrono::steady_clock::now() < end;) {
        }
        return 0;
    }
    std::size_t taken() {
        const std::lock_guard lock(mutex);
        return takers.size();
    }
    void release() {
        const std::lock_guard lock(mutex);
        released = true;
        goOn.notify_all();
    }

    std::mutex mutex;
    std::condition_variable goOn;
    bool released = false;
    std::chrono::milliseconds work{0};   // duration of handling a number
    host::QueueChannel* toAll = nullptr; // channel for the notifications, if any
    std::vector<std::uint64_t> takers;
};

class FloodedQueue : public MessageQueue {
protected:
    explicit FloodedQueue(std::size_t messagesOfEach = host::QueueLimits().messages) {
        limits.messages = messagesOfEach;
        server = std::make_unique<host::MessageQueue>(limits);
        offered = &server->serve("tuner", messages, 4096);
        offered->registerMessageHandler(numberMeta, HeldHandler::take, &handler, numberTable);
        server->start();
        hello = validHello();
        flooder.emplace(path);
    }
    ~FloodedQueue() override {
        handler.release();
        server.reset();
    }
    std::string numbers(std::uint32_t count) {
        std::string bytes;
        for (std::uint32_t i = 0; i < count; ++i) bytes += frameOf(numberMeta, 4, words({i}, false));
        return bytes;
    }

    HeldHandler handler;
    std::string hello;
    std::optional<RawPeer> flooder;
};

TEST_F(FloodedQueue, ServesAnotherClientAfterABoundedNumberOfTheFloodersMessages) {
    flooder->send(hello + numbers(1500)); // in one send that fits into a buffer
    ASSERT_TRUE(eventually([&] { return handler.taken() == 1; }));
    RawPeer other(path);
    other.send(hello + numbers(1));
    handler.release();
    ASSERT_TRUE(eventually([&] { return handler.taken() == 1501; }));
    const auto own = std::find_if(handler.takers.begin(), handler.takers.end(),
                                  [&](std::uint64_t one) { return one != handler.takers.front(); });
    EXPECT_LT(own - handler.takers.begin(), 500);
}

TEST_F(FloodedQueue, ServesAnotherClientSoonWhenEachMessageTakesLong) {
    handler.work = 3ms;
    flooder->send(hello + numbers(100));
    ASSERT_TRUE(eventually([&] { return handler.taken() == 1; }));
    RawPeer other(path);
    other.send(hello + numbers(1));
    handler.release();
    ASSERT_TRUE(eventually([&] { return handler.taken() == 101; }));
    const auto own = std::find_if(handler.takers.begin(), handler.takers.end(),
                                  [&](std::uint64_t one) { return one != handler.takers.front(); });
    EXPECT_LT(own - handler.takers.begin(), 20);
}

TEST_F(FloodedQueue, NamesTheMessageWhoseHandlerDoesNotReturn) {
    EXPECT_FALSE(server->handlingFor(0ms));
    flooder->send(hello + numbers(1));
    ASSERT_TRUE(eventually([&] { return handler.taken() == 1; }));
    const auto handling = server->handlingFor(1ms);
    ASSERT_TRUE(handling);
    EXPECT_EQ(handling->service, "tuner");
    EXPECT_EQ(handling->message, "Number");
    EXPECT_FALSE(handling->calls.empty());
    handler.release();
    EXPECT_TRUE(eventually([&] { return !server->handlingFor(0ms); }));
}

TEST_F(FloodedQueue, StopsWhileMessagesAreQueued) {
    flooder->send(hello + numbers(1500));
    ASSERT_TRUE(eventually([&] { return handler.taken() == 1; }));
    auto stopped = std::async(std::launch::async, [&] { server->stop(); });
    ASSERT_TRUE(eventually([&] { return sendNumber(*offered, 1) == -108; })); // the queue is stopping
    handler.release();
    stopped.get();
    EXPECT_EQ(handler.taken(), 1U);
}

// Otherwise the queues of the other clients would be full.
TEST_F(FloodedQueue, SlowsTheFlooderWhileOthersDoNotReadItsNotifications) {
    RawPeer stalled(path);
    stalled.send(hello);
    ASSERT_TRUE(eventually([&] { return offered->clients().size() == 1; }));
    handler.toAll = offered;
    handler.release();
    constexpr std::uint32_t count = 2000, together = 64; // then the flooder must wait
    constexpr std::uint32_t unnoticed = 300;             // the sockets and queues hold this many
    const auto begin = std::chrono::steady_clock::now();
    flooder->send(hello + numbers(count));
    ASSERT_TRUE(eventually([&] { return handler.taken() == count; }));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, (count - unnoticed) / together * 20ms);
}

// Otherwise many flooders together would fill the other clients' queues in spite of their pauses.
TEST_F(FloodedQueue, SlowsSeveralFloodersAsMuchAsOne) {
    handler.toAll = offered;
    handler.release();
    constexpr std::uint32_t peers = 8, count = 100, together = 64; // one message to all is one to each other peer
    constexpr std::uint32_t unnoticed = 400;
    std::deque<RawPeer> others;
    while (others.size() < peers - 1) others.emplace_back(path);
    const auto begin = std::chrono::steady_clock::now();
    for (RawPeer& other : others) other.send(hello + numbers(count));
    flooder->send(hello + numbers(count));
    ASSERT_TRUE(eventually([&] { return handler.taken() == peers * count; }));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, (peers * count - unnoticed) * (peers - 1) / together * 20ms);
}

// Receives what a service sends, one text every 20 ms.
class SlowReader {
public:
    SlowReader(const std::string& path, const std::string& sent, std::size_t helloSize) : peer_(path) {
        peer_.send(sent);
        EXPECT_EQ(peer_.receive(helloSize).size(), helloSize);
        thread_ = std::jthread([this](const std::stop_token& stop) { read(stop); });
    }

private:
    void read(const std::stop_token& stop) {
        const std::size_t size = frameOf(textMeta, 9 + 4096, std::string(9 + 4096, ' ')).size();
        std::mutex mutex;
        std::condition_variable_any never;
        for (std::unique_lock lock(mutex); !stop.stop_requested() && peer_.receive(size).size() == size;)
            never.wait_for(lock, stop, 20ms, [] { return false; });
    }

    RawPeer peer_;
    std::jthread thread_; // last: it uses the rest
};

// With the longest pause every 64 messages it would take eight seconds.
TEST_F(FloodedQueue, SlowsNobodyMuchForASlowClientWithRoomThatAsksNothing) {
    const SlowReader slow(path, hello, hello.size());
    ASSERT_TRUE(eventually([&] { return offered->clients().size() == 1; }));
    handler.toAll = offered;
    handler.release();
    constexpr std::uint32_t count = 600; // the slow client's queue has room for more
    const auto begin = std::chrono::steady_clock::now();
    flooder->send(hello + numbers(count));
    ASSERT_TRUE(eventually([&] { return handler.taken() == count; }));
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 4s);
}

// Otherwise the answer would arrive late, after all that is queued before it.
TEST_F(FloodedQueue, SlowsTheFlooderForASlowClientThatMayWaitForAnAnswer) {
    handler.toAll = offered;
    handler.release();
    const SlowReader slow(path, hello + numbers(1), hello.size());
    ASSERT_TRUE(eventually([&] { return handler.taken() == 1; }));
    constexpr std::uint32_t count = 300;
    const auto begin = std::chrono::steady_clock::now();
    flooder->send(hello + numbers(count));
    ASSERT_TRUE(eventually([&] { return handler.taken() == 1 + count; }));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 1s);
}

struct FloodedSmallQueue : FloodedQueue {
    FloodedSmallQueue() : FloodedQueue(256) {}
};

// At any speed of the slow client: the flooder waits until that client has received most of what is queued for it.
TEST_F(FloodedSmallQueue, RefusesNoNotificationForASlowClientThatReads) {
    RawPeer slow(path);
    slow.send(hello);
    ASSERT_TRUE(eventually([&] { return offered->clients().size() == 1; }));
    handler.toAll = offered;
    handler.release();
    constexpr std::uint32_t count = 400; // more than sockets and queues hold
    flooder->send(hello + numbers(count));
    const std::size_t frameSize = frameOf(textMeta, 9 + 4096, std::string(9 + 4096, ' ')).size();
    ASSERT_EQ(slow.receive(hello.size()).size(), hello.size());
    for (std::uint32_t i = 0; i < count; ++i) {
        ASSERT_EQ(slow.receive(frameSize).size(), frameSize) << "message " << i;
        for (const auto end = std::chrono::steady_clock::now() + 2ms; std::chrono::steady_clock::now() < end;) {
        }
    }
}

TEST_F(FloodedQueue, KeepsTheOrderOfTheFloodersMessages) {
    Inbox inbox;
    offered->registerMessageHandler(textMeta, Inbox::onText, &inbox, textTable);
    handler.release();
    std::string texts;
    for (int i = 0; i < 2000; ++i) {
        std::string text = std::to_string(i);
        const auto length = static_cast<std::uint32_t>(text.size());
        texts += frameOf(textMeta, 9 + length, words({length, 8}, false) + text + '\0');
    }
    flooder->send(hello + texts);
    ASSERT_TRUE(eventually([&] { return inbox.size() == 2000; }));
    for (std::size_t i = 0; i < 2000; ++i) ASSERT_EQ(inbox.texts[i], std::to_string(i));
}

} // namespace
} // namespace queue_test
