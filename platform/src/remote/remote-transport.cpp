#include "remote/remote-transport.h"

#include "config/number.h"
#include "io/local-transport.h"
#include "io/log.h"
#include "remote/endpoint.h"
#include "remote/relay.h"

#include <host/configuration.h>
#include <host/keys.h>

#include <memory>
#include <netdb.h>
#include <set>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace host::remote {
namespace {

Setting needed(const std::string& name, const std::string& why) {
    if (auto value = setting(name)) return *value;
    throw std::runtime_error(why + ", but " + name + " is not configured");
}

std::set<std::string> clientKeys(const std::string& why) {
    const Setting listed = needed("keys.clients", why);
    std::set<std::string> keys;
    std::istringstream list(listed.text);
    for (std::string key; std::getline(list, key, ',');) {
        checkKey(key, listed.origin + ": keys.clients");
        keys.insert(key);
    }
    if (keys.empty()) throw std::runtime_error(listed.origin + ": keys.clients: names no client");
    return keys;
}

class RemoteConnector final : public io::Connector {
public:
    RemoteConnector(boost::asio::io_context& io, std::shared_ptr<Relay> relay, std::string endpoint, std::string key)
        : io_(io),
          relay_(std::move(relay)),
          endpoint_(std::move(endpoint)),
          key_(std::move(key)),
          mailbox_(std::make_shared<Mailbox>(io)) {}

    const std::string& address() const override { return endpoint_; }
    void connect(const Answer& answer) override {
        mailbox_->wait([this, answer] { take(answer); });
        relay_->connect(endpoint_, key_, mailbox_);
    }

private:
    void take(const Answer& answer) {
        auto item = mailbox_->take();
        if (!item->socket) return answer(nullptr, item->reason);
        std::unique_ptr<io::Stream> stream;
        try {
            stream = io::streamOver(io_, std::move(item->socket));
        } catch (const std::exception& error) {
            return answer(nullptr, error.what());
        }
        answer(std::move(stream), {});
    }

    boost::asio::io_context& io_;
    const std::shared_ptr<Relay> relay_;
    const std::string endpoint_, key_;
    const std::shared_ptr<Mailbox> mailbox_;
};

class RemoteListener final : public io::Listener {
public:
    RemoteListener(boost::asio::io_context& io, std::shared_ptr<Relay> relay, const std::string& service,
                   const std::string& endpoint, const std::set<std::string>& keys)
        : io_(io),
          relay_(std::move(relay)),
          mailbox_(std::make_shared<Mailbox>(io)),
          address_(relay_->serve(service, endpoint, keys, mailbox_)) {
        IO_LOG(vdlDebugProgress, "service %s: offered at %s to %zu known keys\n", service.c_str(), address_.c_str(),
               keys.size());
    }
    ~RemoteListener() override { relay_->stopServing(address_); }

    void wait(std::function<void()> ready) override { mailbox_->wait(std::move(ready)); }
    std::unique_ptr<io::Stream> accept(std::error_code&) override {
        auto item = mailbox_->take();
        if (!item) return nullptr;
        if (!item->socket) throw std::runtime_error(item->reason);
        return io::streamOver(io_, std::move(item->socket));
    }

private:
    boost::asio::io_context& io_;
    const std::shared_ptr<Relay> relay_;
    const std::shared_ptr<Mailbox> mailbox_;
    const std::string address_;
};

} // namespace

std::shared_ptr<Relay> makeRelay() {
    const Setting file = needed("keys.file", "connections to other hosts need this machine's keys");
    return std::make_shared<Relay>(readKeys(file.text),
                                   std::chrono::milliseconds(config::numberOf("remote.heartbeat_ms")));
}

std::unique_ptr<io::Connector> makeConnector(boost::asio::io_context& io, std::shared_ptr<Relay> relay,
                                             const std::string& service, const std::string& endpoint) {
    const std::string name = "keys.services." + service;
    const Setting key = needed(name, "service " + service + " is at " + endpoint + " and has to prove its key");
    checkKey(key.text, key.origin + ": " + name);
    (void)resolved(service, endpoint, placeOf(service, endpoint, 1), 0); // found anew by each attempt
    return std::make_unique<RemoteConnector>(io, std::move(relay), endpoint, key.text);
}

std::unique_ptr<io::Listener> makeListener(boost::asio::io_context& io, std::shared_ptr<Relay> relay,
                                           const std::string& service, const std::string& endpoint) {
    const Place place = placeOf(service, endpoint, 0);
    const auto keys = clientKeys("service " + service + " is offered at " + endpoint + " to known clients only");
    const std::string host = place.host == "*" ? place.host : resolved(service, endpoint, place, AI_PASSIVE);
    try {
        return std::make_unique<RemoteListener>(io, std::move(relay), service, "tcp://" + host + ':' + place.port,
                                                keys);
    } catch (const zmq::error_t& error) {
        throw std::runtime_error("service " + service + ": cannot listen at " + endpoint + ": " + error.what());
    }
}

} // namespace host::remote
