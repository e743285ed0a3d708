// Replaces the code that needs the TLS library where the platform is built without it: every use throws.
#include "remote/remote-transport.h"

#include <host/keys.h>

#include <stdexcept>

namespace host {
namespace {
[[noreturn]] void refuse() {
    throw std::runtime_error("no connections to other hosts: this platform was built without TLS");
}
} // namespace

KeyPair makeKeys() { refuse(); }
void writeKeys(const std::string&, const KeyPair&) { refuse(); }
KeyPair readKeys(const std::string&) { refuse(); }
void checkKey(const std::string&, const std::string&) { refuse(); }

namespace remote {

Transport::Transport(boost::asio::io_context& io, const KeyPair&, std::chrono::milliseconds) : io_(io) { refuse(); }
std::unique_ptr<io::Connector> Transport::connectorTo(const std::string&, const std::string&, const std::string&) {
    refuse();
}
std::unique_ptr<io::Listener> Transport::listenerAt(const std::string&, const std::string&, const HostPort&,
                                                    const std::set<std::string>&) {
    refuse();
}
void Transport::beginShutdown() {}
void Transport::endShutdown() noexcept {}

} // namespace remote
} // namespace host
