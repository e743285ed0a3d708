#include "configured-transports.h"

#include "configured-keys.h"
#include "remote/remote-transport.h"
#include "settings/number.h"
#include "transport/local-transport.h"

#include <host/endpoint.h>
#include <host/environment.h>

#include <chrono>
#include <string>
#include <thread-safety/mutex.h>

namespace host {
namespace {

class ConfiguredTransports final : public io::Transports {
public:
    explicit ConfiguredTransports(boost::asio::io_context& io) : io_(io) {}

    std::unique_ptr<io::Connector> connectorTo(const std::string& service) override {
        const std::string endpoint = endpointOf(service);
        if (!isRemote(endpoint)) return std::make_unique<io::LocalConnector>(io_, endpoint);
        remote::Transport& transport = remote();
        return transport.connectorTo(service, endpoint, keyOfService(service, endpoint));
    }

    std::unique_ptr<io::Listener> listenerFor(const std::string& service) override {
        const std::string endpoint = endpointOf(service);
        if (!isRemote(endpoint)) return std::make_unique<io::LocalListener>(io_, service, endpoint);
        remote::Transport& transport = remote();
        const HostPort hostPort = listenAddressOf(service, endpoint);
        return transport.listenerAt(service, endpoint, hostPort, keysOfClients(service, endpoint));
    }

    void beginShutdown() override {
        thread_safety::LockGuard lock(mutex_);
        if (remote_) remote_->beginShutdown();
    }
    void endShutdown() noexcept override {
        thread_safety::LockGuard lock(mutex_);
        if (remote_) remote_->endShutdown();
    }

private:
    // Created when first needed, by a service on another host or one offered to other hosts, because it requires keys.
    remote::Transport& remote() TVSA_EXCLUDES(mutex_) {
        thread_safety::LockGuard lock(mutex_);
        if (!remote_)
            remote_ = std::make_unique<remote::Transport>(
                io_, ownKeys(), std::chrono::milliseconds(config::numberOf("remote.heartbeat_ms")));
        return *remote_;
    }

    boost::asio::io_context& io_;
    thread_safety::Mutex mutex_;
    std::unique_ptr<remote::Transport> remote_ TVSA_GUARDED_BY(mutex_);
};

} // namespace

std::unique_ptr<io::Transports> configuredTransports(boost::asio::io_context& io) {
    return std::make_unique<ConfiguredTransports>(io);
}

} // namespace host
