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
#define LISTEN(service, direction, Name, method, id, ...)                                                              \
    int method(frame::MsgIds&, const frame::TransportInfo& GENRPC_EACH(GENRPC_PARAMETER, __VA_ARGS__)) override {      \
        return hear(#Name " " + genrpc::argumentsToJson<tvservice::messages::Name>(GENRPC_NAMES(__VA_ARGS__)).dump()); \
    }
    TVSERVICE_NOTIFICATIONS(LISTEN)
#undef LISTEN

    Heard until(const std::function<bool(const std::string&)>& last) {
        thread_safety::UniqueLock lock(mutex_);
        Heard taken;
        const auto deadline = std::chrono::steady_clock::now() + timeout;
        for (;;) {
            if (!changed_.wait_until(lock, deadline,
                                     [&]() TVSA_REQUIRES(mutex_) { return taken.size() < heard_.size(); }))
                throw std::runtime_error("the last answer does not come; so far: " + std::to_string(taken.size()) +
                                         (taken.empty() ? "" : ", the last one " + taken.back()));
            taken.push_back(heard_[taken.size()]);
            if (!last(taken.back())) continue;
            heard_.erase(heard_.begin(), heard_.begin() + static_cast<std::ptrdiff_t>(taken.size()));
            return taken;
        }
    }

private:
    int hear(std::string text) {
        {
            const thread_safety::LockGuard lock(mutex_);
            heard_.push_back(std::move(text));
        }
        changed_.notify_one();
        return 0;
    }

    thread_safety::Mutex mutex_;
    std::condition_variable changed_;
    Heard heard_ TVSA_GUARDED_BY(mutex_);
};

Application::Application() : listener_(boost::make_shared<Listener>()) {
    if (!receiver::waitUntil(connectedToBoth, timeout))
        throw std::runtime_error("the adapter does not get connected to the services");
    boost::shared_ptr<frame::Interface> reference;
    if (frame::Process::getInstance()->getInterfaceReference(reference,
                                                             tvservice::ModelTvServiceAdapter::interfaceKey) != 0)
        throw std::runtime_error("there is no adapter");
    adapter_ = reference->get<tvservice::ModelTvServiceAdapter>();
    adapter_->addClient(listener_);
}

Application::~Application() { adapter_->removeClient(listener_); }

Heard Application::hearUntil(const std::function<bool(const std::string&)>& last) { return listener_->until(last); }

} // namespace exchange
