#include "application.h"

#include <frame/io-statistics.h>
#include <frame/process.h>
#include <genrpc/json.h>
#include <tvservice/messages.h>

#include <algorithm>
#include <boost/make_shared.hpp>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <kit/wait.h>
#include <stdexcept>
#include <thread-safety/mutex.h>
#include <utility>

namespace exchange {
namespace {

constexpr std::chrono::seconds timeout{30};

bool connectedToBoth() {
    const auto services = frame::ioStatistics();
    return services.size() == 2 &&
           std::all_of(services.begin(), services.end(), [](const auto& service) { return service.connected; });
}

} // namespace

class Application::Listener : public tvservice::ClientInterface {
public:
#define LISTEN(service, direction, Name, method, id, ...)                                                         \
    int method(frame::MsgIds&, const frame::TransportInfo& GENRPC_EACH(GENRPC_PARAMETER, __VA_ARGS__)) override { \
        return receive(#Name " " +                                                                                \
                       genrpc::argumentsToJson<tvservice::messages::Name>(GENRPC_NAMES(__VA_ARGS__)).dump());     \
    }
    TVSERVICE_NOTIFICATIONS(LISTEN)
#undef LISTEN

    Notifications until(const std::function<bool(const std::string&)>& last) {
        thread_safety::UniqueLock lock(mutex_);
        Notifications result;
        const auto deadline = std::chrono::steady_clock::now() + timeout;
        for (;;) {
            if (!changed_.wait_until(lock, deadline,
                                     [&]() TVSA_REQUIRES(mutex_) { return result.size() < received_.size(); }))
                throw std::runtime_error("timeout after " + std::to_string(result.size()) + " notifications" +
                                         (result.empty() ? "" : ", the last one is " + result.back()));
            result.push_back(received_[result.size()]);
            if (!last(result.back())) continue;
            received_.erase(received_.begin(), received_.begin() + static_cast<std::ptrdiff_t>(result.size()));
            return result;
        }
    }

private:
    int receive(std::string text) {
        {
            const thread_safety::LockGuard lock(mutex_);
            received_.push_back(std::move(text));
        }
        changed_.notify_one();
        return 0;
    }

    thread_safety::Mutex mutex_;
    std::condition_variable changed_;
    Notifications received_ TVSA_GUARDED_BY(mutex_);
};

Application::Application() : listener_(boost::make_shared<Listener>()) {
    if (!receiver::waitUntil(connectedToBoth, timeout))
        throw std::runtime_error("the adapter does not connect to the services");
    boost::shared_ptr<frame::Interface> reference;
    if (frame::Process::getInstance()->getInterfaceReference(reference,
                                                             tvservice::ModelTvServiceAdapter::interfaceKey) != 0)
        throw std::runtime_error("there is no adapter");
    adapter_ = reference->get<tvservice::ModelTvServiceAdapter>();
    adapter_->addClient(listener_);
}

Application::~Application() { adapter_->removeClient(listener_); }

Notifications Application::receiveUntil(const std::function<bool(const std::string&)>& last) {
    return listener_->until(last);
}

} // namespace exchange
