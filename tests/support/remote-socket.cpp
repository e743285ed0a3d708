#include "support/remote-socket.h"

#ifdef TVSA_REMOTE
#include "remote/relay.h"
#include "remote/remote-transport.h"

#include <host/configuration.h>

#include <boost/asio/io_context.hpp>
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

} // namespace support

#else
#include <stdexcept>

support::RemoteSocket support::connectToTuner(const std::string&) {
    throw std::logic_error("the platform was built without its transport between hosts");
}
#endif
