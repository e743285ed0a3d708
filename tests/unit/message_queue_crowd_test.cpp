// A service to which many clients connect at once.
#include "support/failing-allocations.h"
#include "support/queue-fixture.h"

#include <host/log-capture.h>

#include <cstdio>
#include <filesystem>
#include <iterator>
#include <memory>
#include <vector>

namespace queue_test {
namespace {

long openDescriptors() {
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return std::distance(all, std::filesystem::directory_iterator());
}

struct FirstMessage {
    static int take(const frame::MsgMeta&, const frame::TransportInfo&, const void*, void* context) {
        auto& self = *static_cast<FirstMessage*>(context);
        if (self.taken++ == 0) self.descriptors = openDescriptors();
        changes.notify();
        return 0;
    }
    std::atomic<std::size_t> taken{0};
    std::atomic<long> descriptors{0};
};

// Otherwise clients that keep connecting would use up its memory and block it.
TEST_F(MessageQueue, ServesItsFirstClientsBeforeItHasAcceptedTheLast) {
    startServer();
    const std::string hello = validHello();
    server.reset();
    server = std::make_unique<host::MessageQueue>(limits);
    FirstMessage first;
    EXPECT_EQ(0, server->serve("tuner", messages, 4096)
                     .registerMessageHandler(numberMeta, FirstMessage::take, &first, numberTable));
    constexpr std::size_t crowd = 250;
    std::vector<std::unique_ptr<RawPeer>> peers;
    for (std::size_t i = 0; i < crowd; ++i) {
        peers.push_back(std::make_unique<RawPeer>(path));
        peers.back()->send(hello + frameOf(numberMeta, 4, words({1}, false)));
    }
    const long before = openDescriptors();
    server->start();
    EXPECT_TRUE(eventually([&] { return first.taken == crowd; }));
    EXPECT_LT(first.descriptors - before, static_cast<long>(crowd / 3));
    server.reset(); // destroyed before the object that its handler uses
}

// Otherwise silent clients would use all descriptors, and later clients would wait for their timeouts.
TEST_F(MessageQueue, EvictsTheOldestOfManySilentClients) {
    const host::LogCapture log({0x0202});
    startServer();
    std::vector<std::unique_ptr<RawPeer>> silent;
    for (int i = 0; i < 200; ++i) silent.push_back(std::make_unique<RawPeer>(path));
    EXPECT_TRUE(log.waitFor("rejected: peer sent no hello while 64 others connected", 10s));
    EXPECT_TRUE(silent.front()->isRejected());
    startClient();
    EXPECT_TRUE(honestClientServed());
    EXPECT_TRUE(
        eventually([&] { return serverStatistics().refused == silent.size(); })); // the remaining ones at their timeout
    EXPECT_TRUE(clientStatistics().connected);
}

TEST_F(MessageQueue, EvictsNoClientThatHasSentItsHello) {
    startServer();
    const std::string hello = validHello();
    std::vector<std::unique_ptr<RawPeer>> peers;
    for (int i = 0; i < 200; ++i) {
        peers.push_back(std::make_unique<RawPeer>(path));
        peers.back()->send(hello);
        EXPECT_EQ(peers.back()->receive(helloSize), hello);
    }
    EXPECT_TRUE(eventually([&] { return offered->clients().size() == peers.size(); }));
    EXPECT_EQ(serverStatistics().refused, 0U);
}

TEST_F(MessageQueue, RejectsANewClientWhenAllSlotsAreTaken) {
    const host::LogCapture log({0x0202});
    startServer();
    const std::string hello = validHello();
    const auto isAccepted = [&](RawPeer& peer) { return peer.trySend(hello) && peer.receive(helloSize) == hello; };
    std::vector<std::unique_ptr<RawPeer>> peers;
    for (int i = 0; i < 256; ++i) {
        peers.push_back(std::make_unique<RawPeer>(path));
        EXPECT_TRUE(isAccepted(*peers.back()));
    }
    ASSERT_TRUE(eventually([&] { return offered->clients().size() == peers.size(); }));
    EXPECT_TRUE(RawPeer(path).isRejected());
    EXPECT_TRUE(log.waitFor("client rejected: the service already has 256 clients", 10s));
    EXPECT_EQ(serverStatistics().refused, 1U);
    peers.pop_back();
    ASSERT_TRUE(eventually([&] { return offered->clients().size() == peers.size(); }));
    RawPeer another(path);
    EXPECT_TRUE(isAccepted(another));
    EXPECT_TRUE(eventually([&] { return offered->clients().size() == 256; }));
}

TEST_F(MessageQueue, FreesTheMemoryOfDisconnectedClients) {
    startServer();
    const std::string hello = validHello();
    const auto serveOneByOne = [&](std::size_t clients) {
        for (; clients > 0; --clients) {
            const std::size_t before = serverInbox.size();
            RawPeer(path).send(hello + frameOf(numberMeta, 4, words({1}, false)));
            ASSERT_TRUE(eventually([&] { return serverInbox.size() > before && offered->clients().empty(); }));
        }
        std::lock_guard lock(serverInbox.mutex); // its vectors grow with every message
        serverInbox.numbers.reserve(1000);
        serverInbox.texts.reserve(1000);
        serverInbox.transports.reserve(1000);
    };
    serveOneByOne(70);
    const long before = support::blocksHeld;
    serveOneByOne(50);
    EXPECT_TRUE(eventually([&] { return support::blocksHeld - before < 25; }));
}

// Every rejected client is counted. It is logged in its own line or in the number of suppressed lines. The capture has
// all lines and these numbers.
TEST_F(MessageQueue, WritesFewLinesAboutManyRejectedClients) {
    const host::LogCapture log({0x0202});
    startServer();
    constexpr unsigned crowd = 2000;
    for (unsigned i = 0; i < crowd; ++i) RawPeer(path).send("garbage");
    EXPECT_TRUE(eventually([&] { return serverStatistics().refused == crowd; }));
    unsigned clients = 0;
    const auto heldBack = [&] {
        unsigned all = 0, some = 0;
        clients = 0;
        for (const auto& line : log.lines())
            if (std::sscanf(line.text.c_str(), "... and %u more like it: service %%s: client", &some) == 1)
                all += some;
            else if (line.text.find("rejected: peer's first bytes are not a hello") != std::string::npos)
                ++clients;
        return all;
    };
    EXPECT_TRUE(eventually([&] { return heldBack() > crowd / 2; })) << heldBack();
    EXPECT_EQ(clients, crowd);
    EXPECT_LT(heldBack(), crowd);
}

} // namespace
} // namespace queue_test
