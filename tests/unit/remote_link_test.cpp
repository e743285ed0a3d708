// How a stream's bytes and its credit go through the relay.
#include "remote/link.h"
#include "remote/socket-pair.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <utility>
#include <vector>

using namespace host::remote;
using testing::ElementsAre;

namespace {

struct Peer final : Route {
    bool send(FrameKind kind, const char* data, std::size_t size) noexcept override {
        if (there) frames.emplace_back(static_cast<char>(kind) + std::string(data, size));
        return there;
    }
    std::vector<std::string> frames;
    bool there = true;
};

std::string credit(std::size_t bytes) {
    std::string text;
    for (int shift = 24; shift >= 0; shift -= 8) text += static_cast<char>(bytes >> shift & 0xFF);
    return text;
}

class ALink : public testing::Test {
protected:
    ALink() : ALink(socketPair()) {}
    explicit ALink(std::pair<host::io::FileDescriptor, host::io::FileDescriptor> ends)
        : ours(std::move(ends.first)), link(std::move(ends.second), peer) {}

    void say(const std::string& text) {
        ASSERT_EQ(::send(ours.get(), text.data(), text.size(), MSG_NOSIGNAL), static_cast<ssize_t>(text.size()));
    }
    std::string hear() {
        std::string text(2 * window, '\0');
        const ssize_t size = ::recv(ours.get(), text.data(), text.size(), MSG_DONTWAIT);
        return text.substr(0, size < 0 ? 0 : static_cast<std::size_t>(size));
    }
    void frame(FrameKind kind, const std::string& text = {}) { link.onFrame(kind, text.data(), text.size()); }
    void expectEndFor(const std::string& fault) {
        EXPECT_EQ(link.fault(), fault);
        EXPECT_THAT(peer.frames, ElementsAre("E" + fault));
        EXPECT_TRUE(link.isOver());
    }

    Peer peer;
    host::io::FileDescriptor ours;
    Link link;
};

TEST_F(ALink, SendsWhatTheSocketHasAndHandsOverWhatThePeerSends) {
    say("to the peer");
    link.onSocket(POLLIN);
    EXPECT_THAT(peer.frames, ElementsAre("Dto the peer"));
    frame(FrameKind::Data, "from the peer");
    EXPECT_EQ(hear(), "from the peer");
    EXPECT_FALSE(link.isOver());
}

TEST_F(ALink, TellsThePeerWhenItsSocketIsClosed) {
    say("last words");
    ours.reset();
    link.onSocket(POLLIN);
    EXPECT_FALSE(link.isOver());
    link.onSocket(POLLIN | POLLHUP);
    EXPECT_THAT(peer.frames, ElementsAre("Dlast words", "E"));
    EXPECT_TRUE(link.isOver());
}

TEST_F(ALink, StillHandsOverWhatWasSaidBeforeTheEnd) {
    const std::string part(longestData, 'x');
    for (int i = 0; i < 10; ++i) frame(FrameKind::Data, part); // more than the socket takes
    frame(FrameKind::End);
    EXPECT_FALSE(link.isOver());
    EXPECT_EQ(link.wanted(), POLLOUT);
    std::size_t heard = 0;
    while (!link.isOver()) {
        heard += hear().size();
        link.onSocket(POLLOUT);
    }
    EXPECT_EQ(heard + hear().size(), 10 * part.size());
}

TEST_F(ALink, SendsNoMoreThanItsCredit) {
    const std::string part(longestData, 'x');
    std::size_t sent = 0;
    while ((link.wanted() & POLLIN) != 0) {
        say(part);
        link.onSocket(POLLIN);
        EXPECT_LE(sent += peer.frames.back().size() - 1 + frameCost, window);
    }
    EXPECT_GT(sent, window - frameCost - 1);
    const auto before = peer.frames.size();
    link.onSocket(POLLHUP); // as poll says unasked
    EXPECT_EQ(peer.frames.size(), before);
    frame(FrameKind::Credit, credit(window));
    EXPECT_EQ(link.wanted(), POLLIN);
    link.onSocket(POLLIN);
    EXPECT_EQ(peer.frames.size(), before + 1);
}

TEST_F(ALink, GivesCreditBackOnceItsSocketHasTakenEnough) {
    const std::string part(longestData, 'x');
    std::size_t frames = 0;
    while (peer.frames.empty()) {
        frame(FrameKind::Data, part);
        ++frames;
        while (!hear().empty()) link.onSocket(POLLOUT);
    }
    EXPECT_THAT(peer.frames, ElementsAre("C" + credit(frames * (part.size() + frameCost))));
    EXPECT_GE(frames * (part.size() + frameCost), window / 2);
}

TEST_F(ALink, GivesNoCreditForWhatNobodyReads) {
    const std::string part(longestData, 'x');
    for (int i = 0; i < 15; ++i) frame(FrameKind::Data, part);
    EXPECT_EQ(link.fault(), "");
    std::size_t given = 0;
    for (const auto& sent : peer.frames) given += sent.size() > 4 ? 1 : 0;
    EXPECT_LE(given, 1U); // for what lies in the socket
}

TEST_F(ALink, EndsWithAPeerThatSendsMoreThanItMay) {
    const std::string part(longestData, 'x');
    for (int i = 0; link.fault().empty() && i < 100; ++i) frame(FrameKind::Data, part);
    EXPECT_EQ(link.fault(), "sent more than it may");
    EXPECT_EQ(peer.frames.back(), "Esent more than it may");
    EXPECT_TRUE(link.isOver());
}

TEST_F(ALink, EndsWithAPeerThatSendsAFrameOfNoBytes) {
    frame(FrameKind::Data);
    expectEndFor("sent more than it may");
}

TEST_F(ALink, EndsWithAPeerThatSendsAFrameThatIsTooLong) {
    frame(FrameKind::Data, std::string(longestData + 1, 'x'));
    expectEndFor("sent more than it may");
}

TEST_F(ALink, EndsWithAPeerThatGivesMoreCreditThanThereIs) {
    frame(FrameKind::Credit, credit(1));
    expectEndFor("gave more credit than there is");
}

TEST_F(ALink, EndsWithAPeerWhoseCreditIsMalformed) {
    frame(FrameKind::Credit, "abc");
    expectEndFor("gave a malformed credit");
}

TEST_F(ALink, EndsWithAPeerThatGivesACreditOfNothing) {
    frame(FrameKind::Credit, credit(0));
    expectEndFor("gave a credit of nothing");
}

// Probes cost no credit.
TEST_F(ALink, EndsWithAPeerThatProbesWithoutAPause) {
    for (int heartbeat = 0; heartbeat < 3; ++heartbeat) {
        for (int i = 0; i < Link::mostProbes; ++i) frame(FrameKind::Probe);
        EXPECT_EQ(link.fault(), "") << "as many as may have been held up on the way";
        link.probe();
    }
    peer.frames.clear();
    for (int i = 0; i <= Link::mostProbes; ++i) frame(FrameKind::Probe);
    expectEndFor("probed without a pause");
}

TEST_F(ALink, HearsAndSaysNothingMoreOnceARuleIsBroken) {
    say("not sent any more");
    frame(FrameKind::Open, "\1");
    frame(FrameKind::Data, "too late");
    frame(FrameKind::Credit, "abc");
    link.onSocket(POLLIN);
    link.probe();
    EXPECT_EQ(hear(), "");
    EXPECT_EQ(link.wanted(), 0);
    expectEndFor("opened twice");
}

TEST_F(ALink, EndsWithAPeerThatOpensTwice) {
    frame(FrameKind::Open, "\1");
    expectEndFor("opened twice");
}

TEST_F(ALink, EndsWithAPeerWhoseFrameIsUnknown) {
    frame(static_cast<FrameKind>('?'), "what");
    expectEndFor("sent an unknown frame");
}

TEST_F(ALink, IsOverWhenAProbeFindsNobody) {
    link.probe();
    EXPECT_THAT(peer.frames, ElementsAre("P"));
    EXPECT_FALSE(link.isOver());
    frame(FrameKind::Probe);
    EXPECT_FALSE(link.isOver());
    peer.there = false;
    link.probe();
    EXPECT_TRUE(link.isOver());
}

TEST_F(ALink, IsOverWhenItsSocketIsClosedAndThePeerTakesNothingMore) {
    const std::string part(longestData, 'x');
    while ((link.wanted() & POLLIN) != 0) {
        say(part);
        link.onSocket(POLLIN);
    }
    link.probe();
    EXPECT_FALSE(link.isOver()) << "the socket is there";
    ours.reset();
    for (int i = 0; i < 3; ++i) {
        link.probe();
        EXPECT_FALSE(link.isOver());
    }
    link.probe();
    EXPECT_TRUE(link.isOver());
    EXPECT_EQ(peer.frames.back(), "E");
}

TEST_F(ALink, DrainsItsSocketToTheEnd) {
    const std::string part(longestData, 'x');
    say(part);
    say(part);
    ours.reset();
    link.drain();
    EXPECT_THAT(peer.frames, ElementsAre("D" + part, "D" + part, "E"));
    EXPECT_TRUE(link.isOver());
}

TEST_F(ALink, DrainsItsSocketAsFarAsItsCreditGoes) {
    const std::string part(longestData, 'x');
    while ((link.wanted() & POLLIN) != 0) {
        say(part);
        link.drain();
    }
    std::size_t sent = 0;
    for (const auto& data : peer.frames) sent += data.size() - 1 + frameCost;
    EXPECT_LE(sent, window);
    EXPECT_GT(sent, window - frameCost - 1);
    EXPECT_FALSE(link.isOver());
}

TEST_F(ALink, ReadsOnWhenNobodyReadsWhatThePeerSends) {
    say("last words");
    ours.reset();
    frame(FrameKind::Data, "to nobody");
    frame(FrameKind::Data, "to nobody");
    EXPECT_FALSE(link.isOver());
    link.onSocket(POLLIN);
    link.onSocket(POLLIN);
    EXPECT_THAT(peer.frames, ElementsAre("Dlast words", "E"));
}

} // namespace
