// Connections to other hosts when memory or descriptors run out.
#include "support/failing-allocations.h"
#include "support/queue-fixture.h"

#include <host/log-capture.h>

#include <atomic>
#include <cerrno>
#include <dlfcn.h>

namespace {
std::atomic<bool> descriptorsAreOut{false};
} // namespace

// Visible, so that the platform's library calls it.
extern "C" [[gnu::visibility("default")]] int accept4(int socket, sockaddr* address, socklen_t* size, int flags) {
    if (descriptorsAreOut) {
        errno = EMFILE;
        return -1;
    }
    static const auto systems = reinterpret_cast<decltype(&accept4)>(dlsym(RTLD_NEXT, "accept4"));
    return systems(socket, address, size, flags);
}

namespace queue_test {
namespace {

class BetweenHosts : public MessageQueue {
protected:
    BetweenHosts() {
        if (!remote) path = remote.emplace(folder, "TUNER").address;
    }
};

TEST_F(BetweenHosts, LogsOnceThatDescriptorsRanOutAndAcceptsTheClientsLater) {
    const host::LogCapture log({0x0202});
    startServer();
    descriptorsAreOut = true;
    startClient();
    EXPECT_TRUE(log.waitFor("cannot accept clients: Too many open files", 10s));
    descriptorsAreOut = false;
    EXPECT_TRUE(eventually([&] { return clientStatistics().connected; }));
    std::size_t lines = 0;
    for (const auto& line : log.lines()) lines += line.text.find("cannot accept clients") != std::string::npos;
    EXPECT_EQ(1u, lines);
    EXPECT_EQ(0u, serverStatistics().refused);
}

class AServiceWithoutMemory : public BetweenHosts, public testing::WithParamInterface<long> {
protected:
    AServiceWithoutMemory() {
        startServer();
        hello = RawPeer(path).receive(helloSize);
    }
    // Whether a client that proves its key and sends its hello and a number is served.
    bool exchange() {
        const auto taken = serverInbox.size();
        const auto counted = accounted();
        support::RemotePeer peer(path);
        peer.send(hello + frameOf(numberMeta, 4, "abcd"));
        EXPECT_TRUE(eventually([&] { return serverInbox.size() > taken || accounted() > counted; }))
            << "lost, but not counted";
        return serverInbox.size() > taken;
    }
    std::uint64_t accounted() {
        const auto counters = serverStatistics();
        return counters.refused + counters.undecodable + counters.dropped;
    }
    std::string hello;
};

TEST_P(AServiceWithoutMemory, ServesTheNextClientAndCountsThoseItLost) {
    const host::LogCapture quiet({0x0202});
    ASSERT_TRUE(exchange());
#ifdef SUPPORT_HEAP_IS_THE_SANITIZERS
    constexpr long step = 1, atLeast = 15; // malloc is the sanitizer's, so allocations of the TLS library never fail
#else
    constexpr long step = 11, atLeast = 1000; // most of them by the TLS library, in a handshake
#endif
    const long allocations = support::failElsewhereAtEveryAllocation(
        GetParam(), [&](long) { exchange(); }, [&](long) { EXPECT_TRUE(exchange()); }, step);
    EXPECT_GT(allocations, atLeast);
}

INSTANTIATE_TEST_SUITE_P(OnceOrMore, AServiceWithoutMemory, testing::Values(1, 3));

} // namespace
} // namespace queue_test
