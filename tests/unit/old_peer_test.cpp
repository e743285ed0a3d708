// Older peers and newer ones. A peer with other messages, or with a message of another layout, is rejected with a log
// line that names the message. A peer with the same layouts is accepted, whatever names it gives them.
#include "queue/handshake.h"
#include "support/queue-fixture.h"

#include <host/log-capture.h>
#include <tvservice/messages.h>

#include <algorithm>
#include <gmock/gmock.h>
#include <string>
#include <vector>

namespace queue_test {
namespace {

using host::io::Handshake;
using testing::HasSubstr;

class AnOldPeer : public MessageQueue {
protected:
    // Expects that both sides reject each other, each with its log line, and that no message is delivered.
    void expectRejected(const frame::MessageSet& service, const frame::MessageSet& peer,
                        const std::string& servicesLine, const std::string& peersLine) {
        const host::LogCapture log({0x0202});
        startServer(service);
        startClient(peer);
        EXPECT_TRUE(eventually([&] {
            return connectionEvents.failed > 0 && serverStatistics().refused > 0 && clientStatistics().refused > 0;
        }));
        EXPECT_EQ(channel->failure(), peersLine);
        client->stop();
        server->stop();
        std::string text;
        for (const auto& line : log.lines()) text += line.text + '\n';
        EXPECT_THAT(text, HasSubstr("rejected: " + servicesLine));
        EXPECT_THAT(text, HasSubstr("service tuner: " + peersLine));
        EXPECT_EQ(connectionEvents.connected, 0);
        EXPECT_EQ(serverInbox.size(), 0U);
    }
};

const frame::MessageDescription withOneMore[] = {
    descriptions[0], descriptions[1], {"Newer", unknownMeta, &numberTable}};
const frame::MessageSet newer{withOneMore, 3};

TEST_F(AnOldPeer, IsRejectedByAServiceWithOneMoreMessage) {
    expectRejected(newer, messages, "peer does not know message 0x00002003 (Newer)",
                   "peer has message 0x00002003, which is unknown here");
}

TEST_F(AnOldPeer, RejectsANewerApplicationAsWell) {
    expectRejected(messages, newer, "peer has message 0x00002003, which is unknown here",
                   "peer does not know message 0x00002003 (Newer)");
}

TEST_F(AnOldPeer, IsRejectedWithTheNameOfAMessageThatHasOneMoreField) {
    static const vdl::EndianEntry entries[] = {numberEntries[0], {4, vdl::EndianScalar4, std::uintptr_t{0}}, endOfList};
    static const vdl::EndianTable longer{8, entries};
    static const frame::MessageDescription changed[] = {{"Number", numberMeta, &longer}, descriptions[1]};
    expectRejected({changed, 2}, messages, "peer's message 0x00002001 (Number) has another layout",
                   "peer's message 0x00002001 (Number) has another layout");
}

TEST_F(AnOldPeer, IsAcceptedWithTheSameLayoutsUnderOtherNamesInAnotherOrder) {
    static const vdl::EndianEntry entries[] = {numberEntries[0], endOfList};
    static const vdl::EndianTable sameLayout{4, entries};
    static const frame::MessageDescription renamed[] = {{"Words", textMeta, &textTable},
                                                        {"Count", numberMeta, &sameLayout}};
    startServer();
    startClient({renamed, 2});
    EXPECT_EQ(sendNumber(*channel, 5), 0);
    EXPECT_TRUE(eventually([&] { return serverInbox.size() == 1; }));
    EXPECT_EQ(sendNumber(*offered, 6), 0);
    EXPECT_TRUE(eventually([&] { return clientInbox.size() == 1; }));
    EXPECT_EQ(clientInbox.numbers.front(), 6U);
}

// ---- the same with the messages of the TV service ----

// The TV service's verdict on a peer with these messages.
Handshake::Judgement judge(const std::vector<frame::MessageDescription>& peers) {
    const Handshake service(tvservice::serviceName, tvservice::messageSet(), true);
    const Handshake peer(tvservice::serviceName, {peers.data(), peers.size()}, false);
    return service.judge(peer.hello().data(), peer.hello().size());
}
std::vector<frame::MessageDescription> tvMessages() {
    return {tvservice::messageSet().begin(), tvservice::messageSet().end()};
}

TEST(TheTvService, AcceptsAPeerWithTheSameMessages) {
    EXPECT_EQ(judge(tvMessages()).verdict, Handshake::Verdict::Accepted);
}

TEST(TheTvService, RejectsAnOlderPeerWithoutItsLastMessage) {
    auto older = tvMessages();
    older.pop_back();
    const auto judgement = judge(older);
    EXPECT_EQ(judgement.verdict, Handshake::Verdict::Refused);
    EXPECT_EQ(judgement.reason, "peer does not know message 0x2867125f (TvserviceOadProgressNotify)");
}

TEST(TheTvService, RejectsAnOlderPeerWhoseRecordLacksTheLastField) {
    using Message = tvservice::messages::TvServiceAudioReq;
    static const vdl::EndianEntry fields[] = {{0, vdl::EndianNested, tvservice::TvServiceTerminal_t::Flat::table()},
                                              {8, vdl::EndianScalar4, std::uintptr_t{0}},
                                              endOfList};
    static const vdl::EndianTable record{12, fields};
    static const vdl::EndianEntry body[] = {{0, vdl::EndianNested, &record}, endOfList};
    static const vdl::EndianTable message{12, body};
    auto older = tvMessages();
    std::find_if(older.begin(), older.end(), [](const auto& one) { return one.meta == Message::meta; })->table =
        &message;
    const auto judgement = judge(older);
    EXPECT_EQ(judgement.verdict, Handshake::Verdict::Refused);
    EXPECT_EQ(judgement.reason, "peer's message 0x28671239 (TvServiceAudioReq) has another layout");
}

} // namespace
} // namespace queue_test
