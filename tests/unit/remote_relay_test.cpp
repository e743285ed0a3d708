// Attempts to connect that the relay cannot even begin.
#include "remote/relay.h"

#include <host/keys.h>

#include <boost/asio/io_context.hpp>
#include <chrono>
#include <gtest/gtest.h>
#include <memory>
#include <stdexcept>
#include <string>

using namespace host::remote;
using namespace std::chrono_literals;

namespace {

class ARelay : public testing::Test {
protected:
    // Of the attempt that has begun: why it failed.
    std::string reason() {
        std::string text = "no answer";
        io.restart();
        mailbox->wait([&] {
            const auto item = mailbox->take();
            text = item && !item->socket ? item->reason : "a stream";
            io.stop();
        });
        const auto work = boost::asio::make_work_guard(io);
        io.run_for(10s);
        return text;
    }

    boost::asio::io_context io;
    const std::shared_ptr<Mailbox> mailbox = std::make_shared<Mailbox>(io);
    const host::KeyPair keys = host::makeKeys();
    Relay relay{keys, 1s};
};

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
