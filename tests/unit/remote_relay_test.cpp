// What becomes of attempts to connect, and of connections whose stream is over.
#include "remote/relay.h"
#include "remote/sockets.h"
#include "support/relay-attempt.h"

#include <host/keys.h>

#include <boost/asio/io_context.hpp>
#include <chrono>
#include <gtest/gtest.h>
#include <memory>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <utility>
#include <vector>

using namespace host::remote;
using namespace std::chrono_literals;

namespace {

class ARelay : public testing::Test {
protected:
    // Of the attempt that has begun: why it failed.
    std::string reason() {
        auto answer = support::answerTo(io, *mailbox);
        if (answer.socket) streams.push_back(std::move(answer.socket));
        return answer.reason;
    }

    std::string outcomeAt(const std::string& address) {
        relay.connect(address, keys.publicKey, mailbox);
        return reason();
    }
    // The last reason why a client was turned away.
    std::string refusal() {
        std::string last;
        while (const auto item = offered->take())
            if (!item->socket) last = item->reason;
        return last;
    }

    boost::asio::io_context io;
    std::vector<host::io::FileDescriptor> streams;
    const std::shared_ptr<Mailbox> mailbox = std::make_shared<Mailbox>(io);
    const host::KeyPair keys = host::makeKeys();
    const std::shared_ptr<Mailbox> offered = std::make_shared<Mailbox>(io); // where a service's clients arrive
    Relay relay{keys, 50ms};
};

// One side of a connection without a relay, which keeps to no rules.
struct BareSocket {
    BareSocket(const host::KeyPair& keys, zmq::socket_type type)
        : common{context, keys, 50ms},
          socket(makeSocket(common, type)),
          monitor(common, socket, ZMQ_EVENT_DISCONNECTED) {
        socket.set(zmq::sockopt::rcvtimeo, 10000);
        monitor.socket().set(zmq::sockopt::rcvtimeo, 10000);
    }
    void connect(const std::string& address, const std::string& serviceKey) {
        socket.set(zmq::sockopt::curve_serverkey, serviceKey);
        socket.set(zmq::sockopt::reconnect_ivl, -1);
        socket.connect(address);
    }
    bool hears(char kind) { // sooner or later
        for (zmq::message_t message; socket.recv(message);)
            if (!message.more() && message.size() > 0 && *static_cast<const char*>(message.data()) == kind) return true;
        return false;
    }
    bool hearsOfTheEnd() {
        zmq_pollitem_t item = readable(monitor.socket());
        zmq::poll(&item, 1, 10s);
        return monitor.next().kind == ZMQ_EVENT_DISCONNECTED;
    }

    zmq::context_t context{1};
    const Common common;
    zmq::socket_t socket;
    Monitor monitor;
};

TEST_F(ARelay, GivesAKeyABoundedNumberOfStreams) {
    const std::string address = relay.serve("tuner", "tcp://127.0.0.1:*", {keys.publicKey}, offered);
    for (int i = 0; i < 64; ++i) ASSERT_EQ(outcomeAt(address), "a stream");
    EXPECT_EQ(outcomeAt(address), "turned away: a key has at most 64 streams");
    EXPECT_EQ(refusal(), "the client with the key " + keys.publicKey + ": a key has at most 64 streams");
    streams.clear();
    const auto deadline = std::chrono::steady_clock::now() + 10s;
    while (outcomeAt(address) != "a stream") ASSERT_LT(std::chrono::steady_clock::now(), deadline);
}

// It would keep a descriptor of the service's for nothing.
TEST_F(ARelay, ShutsAConnectionDownThatStaysWhenItsStreamIsOver) {
    const std::string address = relay.serve("tuner", "tcp://127.0.0.1:*", {keys.publicKey}, offered);
    BareSocket client(keys, zmq::socket_type::dealer);
    client.connect(address, keys.publicKey);
    const std::string opening{'O', 1};
    client.socket.send(zmq::buffer(opening), zmq::send_flags::none);
    EXPECT_TRUE(client.hears('O'));
    client.socket.send(zmq::buffer(opening), zmq::send_flags::none);
    EXPECT_TRUE(client.hears('E'));
    EXPECT_TRUE(client.hearsOfTheEnd());
    EXPECT_EQ(refusal(), "the client with the key " + keys.publicKey + ": it opened twice");
}

TEST_F(ARelay, TellsAClientThatSpeaksAnotherVersion) {
    const std::string address = relay.serve("tuner", "tcp://127.0.0.1:*", {keys.publicKey}, offered);
    BareSocket client(keys, zmq::socket_type::dealer);
    client.connect(address, keys.publicKey);
    client.socket.send(zmq::str_buffer("O\2"), zmq::send_flags::none);
    EXPECT_TRUE(client.hears('E'));
    EXPECT_TRUE(client.hearsOfTheEnd());
    EXPECT_EQ(refusal(), "the client with the key " + keys.publicKey + ": client and service speak different versions");
}

// Else all that belongs to it would stay as long as such a service does.
TEST_F(ARelay, GivesAStreamUpThatIsClosedWhileTheServiceTakesNothingMore) {
    BareSocket service(keys, zmq::socket_type::router);
    service.socket.set(zmq::sockopt::curve_server, true);
    service.socket.bind("tcp://127.0.0.1:*");
    relay.connect(service.socket.get(zmq::sockopt::last_endpoint), keys.publicKey, mailbox);
    zmq::message_t client, frame;
    ASSERT_TRUE(service.socket.recv(client));
    ASSERT_TRUE(service.socket.recv(frame));
    service.socket.send(client, zmq::send_flags::sndmore);
    service.socket.send(zmq::str_buffer("O\1"), zmq::send_flags::none);
    ASSERT_EQ(reason(), "a stream");
    const std::string text(window, 'x');
    EXPECT_GT(::send(streams[0].get(), text.data(), text.size(), MSG_NOSIGNAL), 0); // all that is taken at once
    std::size_t taken = 0;
    while (taken < window - frameCost) {
        ASSERT_TRUE(service.socket.recv(client));
        ASSERT_TRUE(service.socket.recv(frame));
        if (*static_cast<const char*>(frame.data()) != 'D') continue;
        taken += frame.size() - 1 + frameCost;
        (void)::send(streams[0].get(), text.data(), text.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    }
    streams.clear();
    EXPECT_TRUE(service.hears('E'));
    EXPECT_TRUE(service.hearsOfTheEnd());
}

TEST_F(ARelay, TellsOnceWhyAnAddressCannotBeUsed) {
    relay.connect("no address", keys.publicKey, mailbox);
    EXPECT_EQ(reason(), "Invalid argument");
    relay.connect([] { return "not found either"; }, keys.publicKey, mailbox);
    EXPECT_EQ(reason(), "Invalid argument");
    EXPECT_FALSE(mailbox->take());
}

TEST_F(ARelay, TellsWhyNoAddressWasFound) {
    relay.connect([]() -> std::string { throw std::runtime_error("nobody knows the name"); }, keys.publicKey, mailbox);
    EXPECT_EQ(reason(), "nobody knows the name");
}

} // namespace
