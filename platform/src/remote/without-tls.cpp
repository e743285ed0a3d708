// In place of what needs the TLS library where the platform is built without it: says so when it is needed.
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

std::shared_ptr<Common> makeCommon() { refuse(); }
std::unique_ptr<io::Connector> makeConnector(boost::asio::io_context&, std::shared_ptr<Common>, const std::string&,
                                             const std::string&) {
    refuse();
}
std::unique_ptr<io::Listener> makeListener(boost::asio::io_context&, std::shared_ptr<Common>, const std::string&,
                                           const std::string&) {
    refuse();
}
void beginFarewell(Common&) {}
void endFarewell(Common&) {}

} // namespace remote
} // namespace host
