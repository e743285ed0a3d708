// Which clients a service offered to other hosts accepts, and which settings it rejects.
#include "support/queue-fixture.h"

#include <host/log-capture.h>

#include <atomic>
#include <condition_variable>
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <mutex>
#include <netdb.h>
#include <netinet/tcp.h>
#include <stdexcept>
#include <thread>

namespace queue_test {
namespace {

using support::RemoteEndpoint;
using testing::HasSubstr;
using testing::StartsWith;

// A peer that connects to the service's port without TLS.
class PlainPeer {
public:
    explicit PlainPeer(int port) : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = htons(static_cast<std::uint16_t>(port));
        EXPECT_EQ(0, ::connect(socket_, reinterpret_cast<sockaddr*>(&address), sizeof address));
    }
    ~PlainPeer() { ::close(socket_); }
    void send(const std::string& bytes) {
        EXPECT_EQ(static_cast<ssize_t>(bytes.size()), ::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL));
    }
    bool isRejected() { // it may send a hello first
        char byte[4096];
        ssize_t count;
        while ((count = ::recv(socket_, byte, sizeof byte, 0)) > 0) {
        }
        return count == 0 || errno == ECONNRESET;
    }

    bool isEndedNow() {
        char byte;
        return ::recv(socket_, &byte, 1, MSG_DONTWAIT) >= 0 || errno != EAGAIN;
    }

private:
    int socket_;
};

// Replaces the system's name resolution. It resolves the host slow.test until told to stop answering.
class NameServer {
public:
    NameServer() { current = this; }
    ~NameServer() {
        {
            std::lock_guard lock(mutex_);
            silent_ = false;
        }
        changed_.notify_all();
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return pending_ == 0; });
        current = nullptr;
    }
    void stopAnswering() {
        std::lock_guard lock(mutex_);
        silent_ = true;
    }
    void waitForQuery() {
        std::unique_lock lock(mutex_);
        EXPECT_TRUE(changed_.wait_for(lock, 20s, [&] { return pending_ > 0; }));
    }
    void answer() {
        std::unique_lock lock(mutex_);
        ++pending_;
        changed_.notify_all();
        changed_.wait(lock, [&] { return !silent_; });
        --pending_;
        changed_.notify_all();
    }
    static inline std::atomic<NameServer*> current{nullptr};

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool silent_ = false;
    int pending_ = 0;
};

class BetweenHosts : public MessageQueue {
protected:
    BetweenHosts() {
        if (!remote) path = remote.emplace(folder, "TUNER").address;
    }
    void expectNoClient(const host::LogCapture& log, const std::string& line) {
        EXPECT_TRUE(log.waitFor(line, 10s));
        EXPECT_EQ(0u, serverInbox.size());
        EXPECT_TRUE(offered->clients().empty());
    }
    // The error that a start throws.
    template <class Start> std::string errorOf(Start start) {
        try {
            start();
        } catch (const std::runtime_error& error) {
            return error.what();
        }
        return "nothing";
    }
    std::string serverError() {
        return errorOf([&] { startServer(); });
    }
    std::string clientError() {
        return errorOf([&] { startClient(); });
    }
};

TEST_F(BetweenHosts, AcceptsAClientWithAKnownKey) {
    const host::LogCapture log({0x0202});
    startBoth();
    EXPECT_TRUE(honestClientServed());
    EXPECT_TRUE(log.waitFor("authenticated with the key " + remote->keys.publicKey, 10s));
    EXPECT_EQ(0u, serverStatistics().refused);
}

TEST_F(BetweenHosts, RejectsAClientWithAnUnknownKey) {
    RemoteEndpoint::set("TVSA_CLIENT_KEYS", host::makeKeys().publicKey + "," + host::makeKeys().publicKey);
    const host::LogCapture log({0x0202});
    startServer();
    startClient();
    expectNoClient(log, "its key is not in the list of accepted keys: " + remote->keys.publicKey);
    EXPECT_TRUE(log.waitFor("it rejects this machine's key", 10s));
    EXPECT_TRUE(eventually([&] { return serverStatistics().refused > 0 && connectionEvents.failed > 0; }));
    EXPECT_EQ(0, connectionEvents.connected);
}

TEST_F(BetweenHosts, RejectsAClientThatExpectsAnotherKeyOfTheService) {
    RemoteEndpoint::set("TVSA_SERVICE_KEY_TUNER", host::makeKeys().publicKey);
    const host::LogCapture log({0x0202});
    startServer();
    startClient();
    expectNoClient(log, "client rejected: 127.0.0.1: TLS handshake failed: it rejects this machine's key");
    EXPECT_TRUE(log.waitFor("its key is not the one configured for the service: " + remote->keys.publicKey, 10s));
    EXPECT_TRUE(eventually([&] { return serverStatistics().refused > 0 && connectionEvents.failed > 0; }));
    EXPECT_EQ(0, connectionEvents.connected);
}

TEST_F(BetweenHosts, LogsTheReasonForEachOfManyClientsWithUnknownKeys) {
    const host::LogCapture log({0x0202});
    startServer();
    std::vector<std::unique_ptr<host::MessageQueue>> unknownClients;
    for (int i = 0; i < 8; ++i) {
        const std::string file = folder + "/unknown" + std::to_string(i);
        host::writeKeys(file, host::makeKeys());
        RemoteEndpoint::set("TVSA_KEY_FILE", file);
        unknownClients.push_back(std::make_unique<host::MessageQueue>(limits));
        unknownClients.back()->open(unknownClients.back()->connectTo("tuner", messages, 4096, nullptr));
    }
    for (const auto& unknown : unknownClients) unknown->start();
    EXPECT_TRUE(eventually([&] { return serverStatistics().refused >= 4 * unknownClients.size(); }));
    unknownClients.clear();
    for (const auto& line : log.lines())
        EXPECT_THAT(line.text, testing::AnyOf(testing::Not(HasSubstr("client rejected: 127")),
                                              HasSubstr("its key is not in the list of accepted keys: ")));
}

// Each peer has one fault. A peer without a fault is accepted.
TEST_F(BetweenHosts, AcceptsOnlyAPeerThatProvesAKnownKey) {
    const host::LogCapture log({0x0202});
    startServer();
    EXPECT_TRUE(support::RemotePeer(path).isAccepted());
    for (const auto& [fault, why] :
         {std::pair{support::Fault::noCertificate, "peer did not return a certificate"},
          std::pair{support::Fault::stolenKey, "bad signature"},
          std::pair{support::Fault::olderProtocol, "unsupported protocol"},
          std::pair{support::Fault::unknownAlgorithm, "client rejected: 127.0.0.1: TLS handshake failed"}}) {
        EXPECT_FALSE(support::RemotePeer(path, fault).isAccepted()) << why;
        EXPECT_TRUE(log.waitFor(why, 10s)) << why;
    }
    EXPECT_TRUE(eventually([&] { return serverStatistics().refused == 4; })) << serverStatistics().refused;
    EXPECT_EQ(0u, serverInbox.size());
}

TEST_F(BetweenHosts, CountsEveryUnauthenticatedPeerOnce) {
    const host::LogCapture log({0x0202});
    startBoth();
    const std::string partialClientHello =
        std::string("\x16\x03\x01\x02\x00\x01\x00\x01\xFC", 9) + std::string(40, 'x');
    constexpr unsigned each = 50;
    for (unsigned i = 0; i < each; ++i) {
        const PlainPeer silent(remote->port);
        PlainPeer(remote->port).send("GET / HTTP/1.0\r\n\r\n");
        PlainPeer(remote->port).send("tvsq" + words({0x01020304, 2}, false));
        PlainPeer(remote->port).send(partialClientHello);
    }
    EXPECT_TRUE(eventually([&] { return serverStatistics().refused == 4 * each; })) << serverStatistics().refused;
    EXPECT_TRUE(honestClientServed());
    EXPECT_EQ(1u, offered->clients().size());
    client.reset();
    EXPECT_TRUE(eventually([&] { return !serverStatistics().connected; }));
    EXPECT_EQ(4 * each, serverStatistics().refused);
}

TEST_F(BetweenHosts, LimitsTheStreamsOfAKey) {
    const host::LogCapture log({0x0202});
    startServer();
    const std::string hello = validHello();
    std::vector<std::unique_ptr<support::RemotePeer>> peers;
    for (int i = 0; i < 64; ++i) {
        peers.push_back(std::make_unique<support::RemotePeer>(path));
        ASSERT_TRUE(peers.back()->isAccepted()) << i;
        ASSERT_TRUE(peers.back()->send(hello)) << i; // without it the service ends the connection after 2 s
    }
    startClient();
    EXPECT_TRUE(log.waitFor("a key has at most 64 streams: " + remote->keys.publicKey, 10s));
    EXPECT_TRUE(log.waitFor("it accepts no more connections with this machine's key", 10s));
    peers.clear();
    EXPECT_TRUE(honestClientServed());
}

// A public key is not secret: a peer that only presents it must not use up its owner's streams.
TEST_F(BetweenHosts, CountsOnlyStreamsWhosePeerHasProvenTheKey) {
    const host::LogCapture log({0x0202});
    startServer();
    std::vector<std::unique_ptr<support::RemotePeer>> peers;
    for (int i = 0; i < 100; ++i) {
        peers.push_back(std::make_unique<support::RemotePeer>(path, support::Fault::unfinishedProof));
        ASSERT_FALSE(peers.back()->isAccepted());
    }
    startClient();
    EXPECT_TRUE(honestClientServed());
    for (const auto& line : log.lines()) EXPECT_THAT(line.text, testing::Not(HasSubstr("a key has at most")));
}

// Key updates cost the client almost nothing, so it can send them without end.
TEST_F(BetweenHosts, ServesOthersWhileAClientSendsKeyUpdatesWithoutAPause) {
    const host::LogCapture log({0x0202});
    startBoth();
    support::RemotePeer peer(path);
    EXPECT_TRUE(peer.isAccepted());
    std::atomic<bool> enough{false};
    std::thread speaker([&] {
        while (!enough) peer.sendKeyUpdate();
    });
    for (int i = 0; i < 20; ++i) {
        EXPECT_TRUE(honestClientServed());
        PlainPeer(remote->port).send("GET / HTTP/1.0\r\n\r\n");
    }
    EXPECT_TRUE(eventually([&] { return serverStatistics().refused >= 20; })) << serverStatistics().refused;
    enough = true;
    speaker.join();
}

// Otherwise they would use all descriptors, and other clients could not connect.
TEST_F(BetweenHosts, EvictsTheOldestOfManySilentConnections) {
    const host::LogCapture log({0x0202});
    startServer();
    std::vector<std::unique_ptr<PlainPeer>> silent;
    for (int i = 0; i < 600; ++i) silent.push_back(std::make_unique<PlainPeer>(remote->port));
    EXPECT_TRUE(silent.front()->isRejected());
    EXPECT_TRUE(log.waitFor("evicted for newer connections before it proved a key", 10s));
    startClient();
    EXPECT_TRUE(honestClientServed());
    EXPECT_TRUE(
        eventually([&] { return serverStatistics().refused == silent.size(); })); // the remaining ones at their timeout
    EXPECT_TRUE(clientStatistics().connected);
}

// Otherwise one byte on each connection would be enough to block all other clients.
TEST_F(BetweenHosts, EvictsTheOldestAndNotTheNewestWhenAllHaveSentSomething) {
    const host::LogCapture log({0x0202});
    startServer();
    std::vector<std::unique_ptr<PlainPeer>> slow;
    for (int i = 0; i < 300; ++i) {
        slow.push_back(std::make_unique<PlainPeer>(remote->port));
        slow.back()->send("\x16");
    }
    EXPECT_TRUE(log.waitFor("evicted for newer connections before it proved a key", 10s));
    EXPECT_TRUE(slow.front()->isRejected());
    EXPECT_FALSE(slow.back()->isEndedNow());
}

TEST_F(BetweenHosts, EvictsNoConnectionThatHasSentSomethingWhileThereIsASilentOne) {
    const host::LogCapture log({0x0202});
    startServer();
    PlainPeer slow(remote->port);
    slow.send(std::string("\x16\x03\x01\x02\x00", 5));
    std::vector<std::unique_ptr<PlainPeer>> silent;
    for (int i = 0; i < 300; ++i) silent.push_back(std::make_unique<PlainPeer>(remote->port));
    EXPECT_TRUE(log.waitFor("evicted for newer connections before it proved a key", 10s));
    EXPECT_FALSE(slow.isEndedNow());
}

// The client is slow: it has not read the records yet, and keeps sending requests.
TEST_F(BetweenHosts, DeliversMessagesSentBeforeAStopToAClientThatKeepsSending) {
    startBoth();
    constexpr std::size_t size = 100'000;
    int sent = 0;
    while (sendText(*offered, size, 'x') == 0 && serverStatistics().queued == 0) ++sent;
    std::atomic<bool> enough{false};
    std::thread asking([&] {
        for (std::uint32_t i = 0; !enough; ++i) (void)channel->asyncSend({}, numberMeta, nullptr, numberTable, &i, {});
    });
    const auto delivered = [&] { return clientInbox.size(); };
    server->stop();
    const auto expected = server->statistics().at(0).sent;
    EXPECT_TRUE(eventually([&] { return delivered() >= expected; })) << delivered() << " of " << expected;
    enough = true;
    asking.join();
}

// The system sends both in one piece.
TEST_F(BetweenHosts, DeliversMessagesBeforeABrokenRecordAndReportsTheRecord) {
    const host::LogCapture log({0x0202});
    startServer();
    support::RemotePeer peer(path);
    ASSERT_TRUE(peer.isAccepted());
    const auto hold = [&](int on) { EXPECT_EQ(0, setsockopt(peer.socket(), IPPROTO_TCP, TCP_CORK, &on, sizeof on)); };
    hold(1);
    peer.send(validHello());
    for (std::uint32_t i = 0; i < 3; ++i) peer.send(frameOf(numberMeta, 4, words({i}, false)));
    const std::string broken = std::string("\x17\x03\x03\x00\x20", 5) + std::string(32, 'x');
    EXPECT_EQ(static_cast<ssize_t>(broken.size()), ::send(peer.socket(), broken.data(), broken.size(), MSG_NOSIGNAL));
    hold(0);
    EXPECT_TRUE(log.waitFor("disconnected: decryption failed or bad record mac", 10s));
    EXPECT_EQ((std::vector<std::uint32_t>{0, 1, 2}), serverInbox.numbers);
    EXPECT_EQ(1u, serverStatistics().refused);
}

TEST_F(BetweenHosts, FindsAServiceByTheNameOfItsHost) {
    startServer();
    RemoteEndpoint::set("TVSA_ENDPOINT_TUNER", "tcp://localhost:" + std::to_string(remote->port));
    startClient();
    EXPECT_TRUE(honestClientServed());
}

// A pending name lookup must not delay other services or the end of the process.
TEST_F(BetweenHosts, DelaysOnlyTheServiceWhoseNameLookupIsPending) {
    NameServer names;
    startServer();
    client = std::make_unique<host::MessageQueue>(limits);
    channel = &client->connectTo("tuner", messages, 4096, &connectionEvents);
    setenv("TVSA_ENDPOINT_OTHER", "tcp://slow.test:5570", 1);
    setenv("TVSA_SERVICE_KEY_OTHER", remote->keys.publicKey.c_str(), 1);
    client->open({&client->connectTo("other", messages, 4096, nullptr), channel});
    names.stopAnswering();
    client->start();
    names.waitForQuery();
    EXPECT_TRUE(honestClientServed());
    client.reset();
    unsetenv("TVSA_ENDPOINT_OTHER");
    unsetenv("TVSA_SERVICE_KEY_OTHER");
}

TEST_F(BetweenHosts, OccupiesAServicesAddressUntilTheServiceEnds) {
    startServer();
    host::MessageQueue second(limits);
    EXPECT_THROW(second.serve("tuner", messages, 4096), std::runtime_error);
    server.reset();
    EXPECT_NO_THROW(second.serve("tuner", messages, 4096));
}

TEST_F(BetweenHosts, RequiresItsOwnKeys) {
    unsetenv("TVSA_KEY_FILE");
    const std::string why = "connections to other hosts need this machine's keys, but keys.file is not configured";
    EXPECT_EQ(serverError(), why);
    EXPECT_EQ(clientError(), why);
}

TEST_F(BetweenHosts, RejectsAKeyFileThatOthersMayRead) {
    std::filesystem::permissions(remote->keyFile, std::filesystem::perms(0644));
    EXPECT_EQ(serverError(), "key file " + remote->keyFile + ": open to other users (expected: mode 0600)");
    EXPECT_EQ(clientError(), serverError());
}

TEST_F(BetweenHosts, RequiresTheKeysOfItsClients) {
    unsetenv("TVSA_CLIENT_KEYS");
    EXPECT_EQ(serverError(), "service tuner is offered at " + remote->address +
                                 " to known clients only, but keys.clients is not configured");
    RemoteEndpoint::set("TVSA_CLIENT_KEYS", "everybody");
    EXPECT_EQ(serverError(), "TVSA_CLIENT_KEYS: keys.clients: not a key of 44 characters: \"everybody\"");
}

TEST_F(BetweenHosts, RequiresTheKeyOfItsService) {
    unsetenv("TVSA_SERVICE_KEY_TUNER");
    EXPECT_EQ(clientError(), "service tuner is at " + remote->address +
                                 " and must prove its key, but keys.services.tuner is not configured");
    RemoteEndpoint::set("TVSA_SERVICE_KEY_TUNER", "any");
    EXPECT_EQ(clientError(), "TVSA_SERVICE_KEY_TUNER: keys.services.tuner: not a key of 44 characters: \"any\"");
}

TEST_F(BetweenHosts, RejectsAMalformedAddress) {
    for (const char* wrong : {"tcp://", "tcp://127.0.0.1", "tcp://127.0.0.1:", "tcp://:5570", "tcp://127.0.0.1:70000",
                              "tcp://127.0.0.1:5570x", "tcp://127.0.0.1:-1", "tcp://::1:5570", "tcp://[::1:5570",
                              "tcp://127.0.0.1:0005570"}) {
        RemoteEndpoint::set("TVSA_ENDPOINT_TUNER", wrong);
        const std::string why = "TVSA_ENDPOINT_TUNER: not tcp://HOST:PORT: \"" + std::string(wrong) + '"';
        EXPECT_EQ(serverError(), why);
        EXPECT_EQ(clientError(), why);
    }
    RemoteEndpoint::set("TVSA_ENDPOINT_TUNER", "tcp://127.0.0.1:0");
    EXPECT_EQ(clientError(), "service tuner: not tcp://HOST:PORT: \"tcp://127.0.0.1:0\"");
}

TEST_F(BetweenHosts, RejectsAnUnknownHost) {
    RemoteEndpoint::set("TVSA_ENDPOINT_TUNER", "tcp://no-such-host.invalid:5570");
    const std::string why = "service tuner: no address for the host of tcp://no-such-host.invalid:5570: ";
    EXPECT_THAT(serverError(), StartsWith(why));
    EXPECT_THAT(clientError(), StartsWith(why));
}

TEST_F(BetweenHosts, RequiresAnAddressOfThisMachineToListenAt) {
    RemoteEndpoint::set("TVSA_ENDPOINT_TUNER", "tcp://192.0.2.1:5570"); // reserved for documentation, so no host has it
    EXPECT_EQ(serverError(), "service tuner: cannot listen at tcp://192.0.2.1:5570: Cannot assign requested address");
}

} // namespace
} // namespace queue_test

// Interposes the system's function.
extern "C" [[gnu::visibility("default")]] int getaddrinfo(const char* host, const char* port, const addrinfo* hints,
                                                          addrinfo** found) {
    static const auto systems = reinterpret_cast<decltype(&getaddrinfo)>(dlsym(RTLD_NEXT, "getaddrinfo"));
    queue_test::NameServer* const names = queue_test::NameServer::current;
    const bool numeric = hints && (hints->ai_flags & AI_NUMERICHOST) != 0;
    if (!names || numeric || !host || std::string(host) != "slow.test") return systems(host, port, hints, found);
    names->answer();
    return systems("127.0.0.1", port, hints, found);
}
