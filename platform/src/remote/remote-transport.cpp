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
    for (const std::string& key : itemsOf(listed)) {
        checkKey(key, listed.origin + ": keys.clients");
        keys.insert(key);
    }
    if (keys.empty()) throw std::runtime_error(listed.origin + ": keys.clients: names no client");
    return keys;
}

// "tcp://ADDRESS:PORT", the address being in numbers, as the relay has no time to ask for names.
std::string addressOf(const std::string& service, const std::string& endpoint, const Place& place, int flags = 0) {
    return textOf(resolved(service, endpoint, place, flags));
}

// As above, or empty when the host is a name.
std::string addressWithoutAsking(const std::string& service, const std::string& endpoint, const Place& place) {
    try {
        return addressOf(service, endpoint, place, AI_NUMERICHOST);
    } catch (const std::runtime_error&) {
        return {};
    }
}

class RemoteConnector final : public io::Connector {
public:
    RemoteConnector(boost::asio::io_context& io, std::shared_ptr<Relay> relay, std::string service,
                    std::string endpoint, std::string key)
        : io_(io),
          relay_(std::move(relay)),
          service_(std::move(service)),
          endpoint_(std::move(endpoint)),
          key_(std::move(key)),
          place_(placeOf(service_, endpoint_, 1)),
          fixedAddress_(addressWithoutAsking(service_, endpoint_, place_)),
          mailbox_(std::make_shared<Mailbox>(io)) {}

    const std::string& address() const override { return endpoint_; }
    void connect(const Answer& answer) override {
        try {
            mailbox_->wait([this, answer] { take(answer); });
            if (!fixedAddress_.empty()) return relay_->connect(fixedAddress_, key_, mailbox_);
            relay_->connect([service = service_, endpoint = endpoint_,
                             place = place_] { return addressOf(service, endpoint, place); },
                            key_, mailbox_);
        } catch (const std::exception& error) { // no memory, or no thread
            mailbox_->wait(nullptr);
            answer(nullptr, error.what());
        }
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
    const std::string service_, endpoint_, key_;
    const Place place_;
    const std::string fixedAddress_; // or empty: the name is asked for anew for each attempt
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
    (void)addressOf(service, endpoint, placeOf(service, endpoint, 1));
    return std::make_unique<RemoteConnector>(io, std::move(relay), service, endpoint, key.text);
}

std::unique_ptr<io::Listener> makeListener(boost::asio::io_context& io, std::shared_ptr<Relay> relay,
                                           const std::string& service, const std::string& endpoint) {
    const Place place = placeToServeAt(service, endpoint);
    const auto keys = clientKeys("service " + service + " is offered at " + endpoint + " to known clients only");
    try {
        return std::make_unique<RemoteListener>(io, std::move(relay), service, textOf(place), keys);
    } catch (const zmq::error_t& error) {
        throw std::runtime_error("service " + service + ": cannot listen at " + endpoint + ": " + error.what());
    }
}

} // namespace host::remote
