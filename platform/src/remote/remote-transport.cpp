#include "remote/remote-transport.h"

#include "config/number.h"
#include "remote/common.h"
#include "remote/connector.h"
#include "remote/endpoint.h"
#include "remote/listener.h"

#include <host/configuration.h>
#include <host/keys.h>

#include <boost/system/system_error.hpp>
#include <netdb.h>
#include <set>
#include <stdexcept>
#include <sys/socket.h>
#include <utility>

namespace host::remote {
namespace {

// For the peers of streams that end with the queue to read what was sent.
constexpr std::chrono::milliseconds lastWords{500};

Setting needed(const std::string& name, const std::string& why) {
    if (auto value = setting(name)) return *value;
    throw std::runtime_error(why + ", but " + name + " is not configured");
}

std::set<std::string> clientKeys(const std::string& why) {
    const Setting listed = needed("keys.clients", why);
    std::set<std::string> keys;
    for (const std::string& key : itemsOf(listed)) {
        checkKey(key, listed.origin + ": keys.clients");
        keys.insert(key);
    }
    if (keys.empty()) throw std::runtime_error(listed.origin + ": keys.clients: names no client");
    return keys;
}

// Every address of this machine: of both kinds, where it has both.
Address everyAddress(const std::string& port) {
    const io::FileDescriptor probe(::socket(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const auto protocol = probe ? boost::asio::ip::tcp::v6() : boost::asio::ip::tcp::v4();
    return {protocol, static_cast<unsigned short>(std::stoul(port))};
}

} // namespace

std::shared_ptr<Common> makeCommon() {
    const Setting file = needed("keys.file", "connections to other hosts need this machine's keys");
    return std::make_shared<Common>(Common{
        makeContext(readKeys(file.text)), std::chrono::milliseconds(config::numberOf("remote.heartbeat_ms")), {}});
}

std::unique_ptr<io::Connector> makeConnector(boost::asio::io_context& io, std::shared_ptr<Common> common,
                                             const std::string& service, const std::string& endpoint) {
    const std::string name = "keys.services." + service;
    const Setting key = needed(name, "service " + service + " is at " + endpoint + " and has to prove its key");
    checkKey(key.text, key.origin + ": " + name);
    return makeConnectorTo(io, std::move(common), service, endpoint, key.text);
}

std::unique_ptr<io::Listener> makeListener(boost::asio::io_context& io, std::shared_ptr<Common> common,
                                           const std::string& service, const std::string& endpoint) {
    const Place place = placeToServeAt(service, endpoint);
    const auto keys = clientKeys("service " + service + " is offered at " + endpoint + " to known clients only");
    try {
        return makeListenerAt(io, std::move(common), service,
                              place.host == "*" ? everyAddress(place.port)
                                                : addressesOf(service, endpoint, place, AI_NUMERICHOST).front(),
                              keys);
    } catch (const boost::system::system_error& error) {
        throw std::runtime_error("service " + service + ": cannot listen at " + endpoint + ": " +
                                 error.code().message());
    }
}

void beginFarewell(Common& common) { common.farewell.begin(); }
void endFarewell(Common& common) { common.farewell.wait(lastWords); }

} // namespace host::remote
