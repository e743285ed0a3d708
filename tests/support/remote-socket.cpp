#include "support/remote-socket.h"

#ifdef TVSA_REMOTE
#include "remote/relay.h"
#include "remote/remote-transport.h"
#include "remote/sockets.h"

#include <host/configuration.h>
#include <host/keys.h>

#include <boost/asio/io_context.hpp>
#include <chrono>
#include <fcntl.h>
#include <gtest/gtest.h>

namespace support {
namespace {

// The relay's mailbox belongs to the io_context, so that has to last, too.
struct Station {
    boost::asio::io_context io{1};
    std::shared_ptr<host::remote::Relay> relay = host::remote::makeRelay();
};

} // namespace

RemoteSocket connectToTuner(const std::string& address) {
    const auto station = std::make_shared<Station>();
    const auto mailbox = std::make_shared<host::remote::Mailbox>(station->io);
    int socket = -1;
    bool told = false;
    mailbox->wait([&] {
        auto item = mailbox->take();
        if (!item->socket) ADD_FAILURE() << item->reason;
        socket = item->socket.release();
        told = true;
    });
    station->relay->connect(address, host::setting("keys.services.tuner")->text, mailbox);
    const auto work = boost::asio::make_work_guard(station->io);
    while (!told) station->io.run_one();
    if (socket >= 0) (void)::fcntl(socket, F_SETFL, 0);
    return {station, socket};
}

struct RuthlessClient::State {
    zmq::context_t context{1};
    const host::remote::Common common{context, host::readKeys(host::setting("keys.file")->text),
                                      std::chrono::seconds(1)};
    zmq::socket_t socket = host::remote::makeSocket(common, zmq::socket_type::dealer);
};

RuthlessClient::RuthlessClient(const std::string& address) : state_(std::make_unique<State>()) {
    state_->socket.set(zmq::sockopt::curve_serverkey, host::setting("keys.services.tuner")->text);
    state_->socket.set(zmq::sockopt::rcvtimeo, 10000);
    state_->socket.connect(address);
}

RuthlessClient::~RuthlessClient() = default;

void RuthlessClient::say(const std::string& frame) {
    EXPECT_TRUE(state_->socket.send(zmq::buffer(frame), zmq::send_flags::none));
}

char RuthlessClient::hear() {
    for (zmq::message_t message;;) {
        if (!state_->socket.recv(message)) return '\0';
        const char kind = *static_cast<const char*>(message.data());
        if (kind != static_cast<char>(host::remote::FrameKind::Data)) return kind;
    }
}

} // namespace support

#else
#include <stdexcept>

support::RemoteSocket support::connectToTuner(const std::string&) {
    throw std::logic_error("the platform was built without its transport between hosts");
}
#endif
