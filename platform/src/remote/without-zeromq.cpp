// In place of what needs the library in this folder where the platform is built without ZeroMQ: says so when it is
// needed.
#include "remote/remote-transport.h"

#include <host/keys.h>

#include <stdexcept>

namespace host {
namespace {
[[noreturn]] void refuse() {
    throw std::runtime_error("no connections to other hosts: this platform was built without ZeroMQ");
}
} // namespace

KeyPair makeKeys() { refuse(); }
void writeKeys(const std::string&, const KeyPair&) { refuse(); }
KeyPair readKeys(const std::string&) { refuse(); }
void checkKey(const std::string&, const std::string&) { refuse(); }

namespace remote {

std::shared_ptr<Relay> makeRelay() { refuse(); }
std::unique_ptr<io::Connector> makeConnector(boost::asio::io_context&, std::shared_ptr<Relay>, const std::string&,
                                             const std::string&) {
    refuse();
}
std::unique_ptr<io::Listener> makeListener(boost::asio::io_context&, std::shared_ptr<Relay>, const std::string&,
                                           const std::string&) {
    refuse();
}

} // namespace remote
} // namespace host
