#include "support/queue-fixture.h"

#include <host/log-capture.h>
#include <host/marshaller.h>

#include <cstdlib>
#include <stdexcept>
#include <thread>

namespace queue_test {
namespace {

TEST_F(MessageQueue, DeliversInOrderBothWays) {
    startBoth();
    for (std::uint32_t i = 0; i < 5000; ++i) {
        while (sendNumber(*channel, i) == -11) std::this_thread::yield();
        while (sendNumber(*offered, i) == -11) std::this_thread::yield();
    }
    ASSERT_TRUE(eventually([&] { return serverInbox.size() == 5000 && clientInbox.size() == 5000; }));
    for (std::uint32_t i = 0; i < 5000; ++i) {
        ASSERT_EQ(i, serverInbox.numbers[i]);
        ASSERT_EQ(i, clientInbox.numbers[i]);
    }
    EXPECT_EQ((frame::MsgIds{7, 1}), serverInbox.transports[1].ids);
    EXPECT_EQ(5000u, clientStatistics().sent);
    EXPECT_EQ(5000u, clientStatistics().received);
}

TEST_F(MessageQueue, DeliversLargeMessagesWhole) {
    startBoth();
    for (const char letter : {'a', 'b', 'c'}) EXPECT_EQ(0, sendText(*channel, 1024 * 1024, letter));
    ASSERT_TRUE(eventually([&] { return serverInbox.size() == 3; }));
    EXPECT_EQ(std::string(1024 * 1024, 'b'), serverInbox.texts[1]);
    EXPECT_TRUE(eventually([&] { return clientStatistics().sent == 3 && clientStatistics().queued == 0; }));
}

TEST_F(MessageQueue, RefusesAMessageThatIsTooLarge) {
    startBoth();
    EXPECT_EQ(-90, sendText(*channel, host::maximumMessageBytes, 'x'));
    EXPECT_EQ(1u, clientStatistics().refused);
    EXPECT_EQ(0u, clientStatistics().queued);
    EXPECT_TRUE(honestClientServed());
}

TEST_F(MessageQueue, RefusesAPayloadThatCannotBeMarshalled) {
    startBoth();
    vdlDeserString_t text{5u, nullptr};
    int completions = 0;
    EXPECT_EQ(-22, channel->asyncSend({}, textMeta, nullptr, textTable, &text, [&] { ++completions; }));
    EXPECT_EQ(1, completions);
    EXPECT_TRUE(honestClientServed());
}

TEST_F(MessageQueue, KeepsMessagesUntilTheServiceStarts) {
    startClient();
    for (std::uint32_t i = 0; i < 10; ++i) EXPECT_EQ(0, sendNumber(*channel, i));
    ASSERT_TRUE(eventually([&] { return connectionEvents.failed > 0; }));
    EXPECT_EQ(10u, clientStatistics().queued);
    startServer();
    ASSERT_TRUE(eventually([&] { return serverInbox.size() == 10; }));
    EXPECT_EQ(9u, serverInbox.numbers[9]);
    EXPECT_EQ(1, connectionEvents.connected);
}

TEST_F(MessageQueue, DropsMessagesThatWaitTooLong) {
    limits.wait = 30ms;
    startClient();
    EXPECT_EQ(0, sendNumber(*channel, 1));
    EXPECT_EQ(0, sendNumber(*channel, 2));
    EXPECT_TRUE(eventually([&] { return clientStatistics().dropped == 2 && clientStatistics().queued == 0; }));
}

TEST_F(MessageQueue, RefusesMessagesBeyondTheCount) {
    limits.messages = 3;
    startClient();
    for (std::uint32_t i = 0; i < 3; ++i) EXPECT_EQ(0, sendNumber(*channel, i));
    EXPECT_EQ(-11, sendNumber(*channel, 3));
    EXPECT_EQ(1u, clientStatistics().refused);
    EXPECT_EQ(3u, clientStatistics().queued);
}

TEST_F(MessageQueue, RefusesMessagesBeyondTheBytes) {
    limits.bytes = 10000;
    startClient();
    EXPECT_EQ(0, sendText(*channel, 9000, 'x'));
    EXPECT_EQ(-11, sendText(*channel, 9000, 'y'));
    startServer();
    ASSERT_TRUE(eventually([&] { return serverInbox.size() == 1; }));
    EXPECT_EQ(std::string(9000, 'x'), serverInbox.texts[0]);
}

TEST_F(MessageQueue, LogsTheFirstRefusalAndTheNumberOfLaterOnes) {
    limits.messages = 2;
    const host::LogCapture log({0x0202});
    const auto refusals = [&] {
        std::vector<std::string> texts;
        for (const auto& line : log.lines())
            if (line.text.find(" refused: ") != std::string::npos ||
                line.text.find("were refused") != std::string::npos)
                texts.push_back(line.text); // not the lines about refused connections
        return texts;
    };
    const auto fill = [&] {
        for (const int expected : {0, 0, -11, -11, -11, -11}) EXPECT_EQ(expected, sendNumber(*channel, 1));
    };
    const std::string first = "service tuner: message 0x00002001 refused: 2 messages (72 bytes) are queued already";
    const std::string others = "service tuner: 3 more messages were refused while the queue was full";
    startClient();
    fill();
    EXPECT_EQ(refusals(), std::vector{first});
    startServer();
    ASSERT_TRUE(eventually([&] { return serverInbox.size() == 2; }));
    EXPECT_TRUE(log.waitFor(others, 20s));
    EXPECT_EQ(refusals(), (std::vector{first, others}));
    server.reset();
    ASSERT_TRUE(eventually([&] { return connectionEvents.disconnected == 1; }));
    fill();
    client->stop();
    EXPECT_EQ(refusals(), (std::vector{first, others, first, others}));
    EXPECT_EQ(8u, clientStatistics().refused);
}

TEST_F(MessageQueue, RefusesAnUnknownConnection) {
    startBoth();
    const frame::TransportInfo unknownClient{123456789, {}};
    EXPECT_EQ(-107, sendNumber(*offered, 1, &unknownClient));
    EXPECT_EQ(-107, sendNumber(*channel, 1, &unknownClient));
    EXPECT_EQ(1u, serverStatistics().refused);
}

TEST_F(MessageQueue, RefusesEverythingOnceStopped) {
    startBoth();
    client->stop();
    client->stop();
    EXPECT_EQ(-108, sendNumber(*channel, 1));
    EXPECT_FALSE(clientStatistics().connected);
}

TEST_F(MessageQueue, DropsQueuedMessagesWhenStopped) {
    startClient();
    EXPECT_EQ(0, sendNumber(*channel, 1));
    EXPECT_EQ(0, sendNumber(*channel, 2));
    client->stop();
    EXPECT_EQ(2u, clientStatistics().dropped);
    EXPECT_EQ(0u, clientStatistics().queued);
}

TEST_F(MessageQueue, DeliversMessagesThatAClientSentBeforeItStopped) {
    startBoth();
    for (int i = 0; i < 100; ++i) sendText(*channel, 1000, 'x');
    client->stop();
    const auto sent = clientStatistics().sent;
    client.reset();
    EXPECT_GT(sent, 0u);
    EXPECT_TRUE(eventually([&] { return serverInbox.size() == sent; })) << serverInbox.size() << " of " << sent;
}

TEST_F(MessageQueue, DeliversMessagesThatAServiceSentBeforeItStopped) {
    startBoth();
    for (int i = 0; i < 100; ++i) sendText(*offered, 1000, 'x');
    server->stop();
    const auto sent = serverStatistics().sent;
    server.reset();
    EXPECT_GT(sent, 0u);
    EXPECT_TRUE(eventually([&] { return clientInbox.size() == sent; })) << clientInbox.size() << " of " << sent;
}

TEST_F(MessageQueue, BindsAMessageOnlyOnce) {
    startServer();
    EXPECT_EQ(-17, offered->registerMessageHandler(numberMeta, &Inbox::onNumber, nullptr, numberTable));
    const vdl::EndianTable broken{4, textEntries};
    EXPECT_EQ(-22, offered->registerMessageHandler(unknownMeta, &Inbox::onNumber, nullptr, broken));
}

TEST_F(MessageQueue, AnswersTheClientThatAsked) {
    startBoth();
    host::MessageQueue other(limits);
    Inbox otherInbox;
    auto& otherChannel = other.connectTo("tuner", messages, 4096, nullptr);
    otherInbox.registerWith(otherChannel);
    other.open(otherChannel);
    other.start();
    EXPECT_EQ(0, sendNumber(otherChannel, 5));
    ASSERT_TRUE(eventually([&] { return serverInbox.size() == 1; }));
    const auto requester = serverInbox.transports[0];
    EXPECT_EQ(0, sendNumber(*offered, 6, &requester));
    EXPECT_EQ(0, sendNumber(*offered, 7));
    ASSERT_TRUE(eventually([&] { return otherInbox.size() == 2 && clientInbox.size() == 1; }));
    EXPECT_EQ((std::vector<std::uint32_t>{6, 7}), otherInbox.numbers);
    EXPECT_EQ((std::vector<std::uint32_t>{7}), clientInbox.numbers);
}

TEST_F(MessageQueue, SendsToNoClientWhenThereIsNone) {
    startServer();
    EXPECT_EQ(0, sendNumber(*offered, 1));
    EXPECT_EQ(0u, serverStatistics().sent + serverStatistics().queued);
}

TEST_F(MessageQueue, ConnectsOnlyModulesThatAreOpened) {
    startServer();
    client = std::make_unique<host::MessageQueue>(limits);
    auto& closed = client->connectTo("tuner", messages, 4096, nullptr);
    auto& opened = client->connectTo("tuner", messages, 4096, &connectionEvents);
    clientInbox.registerWith(closed);
    client->open(opened);
    client->start();
    ASSERT_TRUE(eventually([&] { return client->statistics()[1].connected; }));
    EXPECT_FALSE(client->statistics()[0].connected);
    EXPECT_EQ(0, sendNumber(*offered, 5)) << "to all clients";
    EXPECT_EQ(0, sendNumber(closed, 6)) << "waits for the connection";
    client->open(closed);
    ASSERT_TRUE(eventually([&] { return client->statistics()[0].connected && serverInbox.size() == 1; }));
    EXPECT_EQ(0U, clientInbox.size());
}

TEST_F(MessageQueue, ServesOtherClientsWhenOneQueueIsFull) {
    limits.messages = 2;
    startBoth();
    RawPeer stalled(path);
    stalled.send(validHello() + frameOf(numberMeta, 4, words({1}, false)));
    ASSERT_TRUE(eventually([&] { return serverInbox.size() == 1; }));
    for (std::size_t i = 1; i <= 6; ++i) {
        EXPECT_EQ(0, sendText(*offered, 1024 * 1024, 'x'));
        ASSERT_TRUE(eventually([&] { return clientInbox.size() == i; }));
    }
    EXPECT_EQ(4u, serverStatistics().refused);
    EXPECT_EQ(-11, sendNumber(*offered, 1, &serverInbox.transports[0]));
}

TEST_F(MessageQueue, SurvivesAHandlerThatThrows) {
    startServer();
    const auto thrower = [](const frame::MsgMeta&, const frame::TransportInfo&, const void*, void*) -> int {
        throw std::runtime_error("not today");
    };
    EXPECT_EQ(0, offered->registerMessageHandler(unknownMeta, thrower, nullptr, numberTable));
    startClient();
    EXPECT_EQ(0, sendNumber(*channel, 1, nullptr, unknownMeta));
    EXPECT_TRUE(honestClientServed());
}

TEST_F(MessageQueue, ReadsItsLimitsFromTheEnvironment) {
    setenv("TVSA_QUEUE_MESSAGES", "12", 1);
    EXPECT_EQ(12u, host::QueueLimits::fromConfiguration().messages);
    setenv("TVSA_QUEUE_MESSAGES", "a dozen", 1);
    try {
        host::QueueLimits::fromConfiguration();
        ADD_FAILURE() << "accepted it as a number";
    } catch (const std::runtime_error& error) {
        EXPECT_NE(std::string::npos, std::string(error.what()).find("TVSA_QUEUE_MESSAGES")) << error.what();
    }
    unsetenv("TVSA_QUEUE_MESSAGES");
}

} // namespace
} // namespace queue_test
