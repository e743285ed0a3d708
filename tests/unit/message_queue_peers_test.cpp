#include "support/queue-fixture.h"

#include <host/marshaller.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <sys/socket.h>
#include <unistd.h>

namespace queue_test {
namespace {

// The same hello as sent by a machine with the other byte order.
std::string byteSwappedHello(std::string hello, std::size_t nameLength) {
    const auto turn = [&](std::size_t at, std::size_t size) {
        std::reverse(hello.begin() + static_cast<std::ptrdiff_t>(at),
                     hello.begin() + static_cast<std::ptrdiff_t>(at + size));
    };
    for (std::size_t at = 4; at < 24; at += 4) turn(at, 4);
    turn(24, 8);
    for (std::size_t at = 32 + nameLength; at < hello.size(); at += 24) {
        for (std::size_t word = 0; word < 16; word += 4) turn(at + word, 4);
        turn(at + 16, 8);
    }
    return hello;
}

TEST_F(MessageQueue, RejectsAPeerWithAnotherLayout) {
    const frame::MessageDescription changed[] = {{"Number", numberMeta, &textTable}, {"Text", textMeta, &textTable}};
    startServer();
    testing::internal::CaptureStderr();
    startClient({changed, 2});
    EXPECT_TRUE(eventually([&] {
        return connectionEvents.failed > 0 && serverStatistics().refused > 0 && clientStatistics().refused > 0;
    }));
    EXPECT_EQ("peer's message 0x00002001 (Number) has another layout", channel->failure());
    client->stop();
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_NE(std::string::npos, log.find("service tuner: peer's message 0x00002001 (Number) has another layout"))
        << log;
    EXPECT_EQ(0, connectionEvents.connected);
}

TEST_F(MessageQueue, RejectsAPeerWithoutOneOfTheMessages) {
    startServer({descriptions, 1});
    testing::internal::CaptureStderr();
    startClient();
    EXPECT_TRUE(eventually([&] { return clientStatistics().refused > 0; }));
    client->stop();
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_NE(std::string::npos, log.find("peer does not know message 0x00002002 (Text)")) << log;
}

TEST_F(MessageQueue, RejectsAPeerOfAnotherService) {
    startServer();
    setenv("TVSA_ENDPOINT_OTHER", path.c_str(), 1);
    if (remote) setenv("TVSA_SERVICE_KEY_OTHER", remote->keys.publicKey.c_str(), 1);
    host::MessageQueue other(limits);
    other.open(other.connectTo("other", messages, 4096, &connectionEvents));
    unsetenv("TVSA_ENDPOINT_OTHER");
    unsetenv("TVSA_SERVICE_KEY_OTHER");
    testing::internal::CaptureStderr();
    other.start();
    EXPECT_TRUE(eventually([&] { return serverStatistics().refused > 0 && other.statistics()[0].refused > 0; }));
    other.stop();
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_NE(std::string::npos, log.find("service other: peer offers service tuner")) << log;
}

TEST_F(MessageQueue, IsNotDisturbedByGarbage) {
    startBoth();
    RawPeer garbage(path), newer(path), huge(path), cut(path);
    garbage.send("GET / HTTP/1.0\r\n\r\n");
    newer.send("tvsq" + words({0x01020304, 2}, false));
    huge.send("tvsq" + words({0x01020304, 1, 0x7FFFFFFF, 5, 0x10000000, 0, 0}, false));
    EXPECT_TRUE(garbage.isRejected());
    EXPECT_TRUE(newer.isRejected());
    EXPECT_TRUE(huge.isRejected());
    EXPECT_EQ(3u, serverStatistics().refused);
    cut.send(validHello().substr(0, 40));
    EXPECT_TRUE(honestClientServed());
    EXPECT_TRUE(cut.isRejected()); // at the hello timeout
    EXPECT_EQ(4u, serverStatistics().refused);
    EXPECT_TRUE(honestClientServed());
}

TEST_F(MessageQueue, EndsAConnectionWithAnOversizedFrame) {
    startBoth();
    RawPeer large(path);
    large.send(validHello() + frameOf(numberMeta, host::maximumMessageBytes + 1, ""));
    EXPECT_TRUE(large.isRejected());
    EXPECT_EQ(1u, serverStatistics().undecodable);
    EXPECT_TRUE(honestClientServed());
}

TEST_F(MessageQueue, ContinuesAfterAnUndecodableMessage) {
    startServer();
    RawPeer peer(path);
    peer.send(validHello() + frameOf(textMeta, 8, words({5, 0xFFFFFFF0}, false)) +
              frameOf(unknownMeta, 4, words({1}, false)) + frameOf(numberMeta, 3, "abc") +
              frameOf(numberMeta, 4, words({42}, false)));
    ASSERT_TRUE(eventually([&] { return serverInbox.size() == 1; }));
    EXPECT_EQ(42u, serverInbox.numbers[0]);
    EXPECT_EQ(3u, serverStatistics().undecodable);
}

TEST_F(MessageQueue, UnderstandsAPeerWithTheOtherByteOrder) {
    startServer();
    RawPeer peer(path);
    const std::string text = words({3, 8}, true) + std::string("abc\0", 4);
    const std::string all = byteSwappedHello(validHello(), 5) + frameOf(numberMeta, 4, words({42}, true), true) +
                            frameOf(textMeta, 12, text, true);
    for (const char byte : all) peer.send(std::string(1, byte));
    ASSERT_TRUE(eventually([&] { return serverInbox.size() == 2; }));
    EXPECT_EQ(42u, serverInbox.numbers[0]);
    EXPECT_EQ("abc", serverInbox.texts[1]);
    EXPECT_EQ((frame::MsgIds{7, 9}), serverInbox.transports[0].ids);
}

TEST_F(MessageQueue, ReconnectsWhenTheServiceRestarts) {
    startBoth();
    EXPECT_TRUE(honestClientServed());
    server.reset();
    ASSERT_TRUE(eventually([&] { return connectionEvents.disconnected == 1; }));
    EXPECT_NE("", channel->failure());
    EXPECT_EQ(0, sendNumber(*channel, 8));
    startServer();
    ASSERT_TRUE(eventually([&] { return serverInbox.size() == 2; }));
    EXPECT_EQ(8u, serverInbox.numbers[1]);
    EXPECT_EQ(2, connectionEvents.connected);
    EXPECT_EQ("", channel->failure());
    EXPECT_EQ(1u, clientStatistics().reconnects);
    EXPECT_EQ(0u, clientStatistics().dropped);
}

TEST_F(MessageQueue, DropsOnlyTheMessageThatADisconnectCutShort) {
    startServer();
    std::string hello = validHello();
    server.reset();
    // A service that never reads, so that only a part of a large message is sent.
    const int listener = boundSocket();
    ASSERT_EQ(0, ::listen(listener, 1));
    startClient();
    const int peer = ::accept(listener, nullptr, nullptr);
    ASSERT_EQ(static_cast<ssize_t>(hello.size()), ::send(peer, hello.data(), hello.size(), MSG_NOSIGNAL));
    ASSERT_TRUE(eventually([&] { return clientStatistics().connected; }));
    EXPECT_EQ(0, sendText(*channel, 4 * 1024 * 1024, 'x'));
    EXPECT_EQ(0, sendNumber(*channel, 2));
    EXPECT_EQ(2u, clientStatistics().queued);
    ::close(listener);
    ::close(peer);
    startServer();
    ASSERT_TRUE(eventually([&] { return serverInbox.size() == 1; }));
    EXPECT_EQ(2u, serverInbox.numbers[0]);
    EXPECT_EQ(1u, clientStatistics().dropped);
}

} // namespace
} // namespace queue_test
