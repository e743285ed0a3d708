#include "attempt.h"
#include "files.h"

#include <frame/abstract-marshalling-impl.h>
#include <host/configuration.h>
#include <host/endpoint.h>
#include <host/environment.h>
#include <host/log-capture.h>
#include <host/message-queue.h>
#include <mmservice/messages.h>
#include <tvservice/messages.h>

#include <condition_variable>
#include <stdexcept>
#include <thread-safety/mutex.h>

namespace tvctl::doctor {
namespace {

// Nothing is sent.
constexpr std::size_t sendBufferBytes = 1;

class News final : public frame::IOConnectionListener {
public:
    void onIOConnectionConnected() override { tell(true); }
    void onIOConnectionConnectionFailed() override { tell(false); }
    void onIOConnectionDisconnected() override {}

    // Whether the first attempt worked; nothing when it was not over in time.
    std::optional<bool> wait(std::chrono::milliseconds timeout) {
        thread_safety::UniqueLock lock(mutex_);
        told_.wait_for(lock, timeout, [this]() TVSA_REQUIRES(mutex_) { return connected_.has_value(); });
        return connected_;
    }

private:
    void tell(bool connected) {
        thread_safety::LockGuard lock(mutex_);
        if (!connected_) connected_ = connected;
        told_.notify_all();
    }

    thread_safety::Mutex mutex_;
    std::condition_variable told_;
    std::optional<bool> connected_ TVSA_GUARDED_BY(mutex_);
};

void checkLocalService(Diagnosis& diagnosis, const Service& service, const std::string& path,
                       std::chrono::milliseconds timeout) {
    const auto state = examineSocket(path);
    diagnosis.entryPoints.push_back(entryPointOf(path, state));
    if (state.kind == SocketState::Kind::missing)
        return diagnosis.warn(service.name, "not running: nobody serves " + path, "start it");
    if (!checkSocket(diagnosis, service.name, path, state)) return;
    const std::string process = "process " + std::to_string(state.process);
    if (const auto failure = failureOfAttempt(service, timeout))
        diagnosis.wrong(service.name, process + " does not take this program for a client: " + *failure,
                        "run service and framework of the same version");
    else
        diagnosis.ok(service.name, process + " serves " + path + " and has the same messages");
}

// The socket of a service in the runtime folder, or what its setting says. The folder is not made for it.
std::string placeOf(const Service& service) {
    int error = 0;
    if (!host::setting("endpoints." + service.name) && !stateOf(host::runtimeDirectoryPath(), error) && error == 0)
        return {};
    return host::endpointOf(service.name);
}

} // namespace

std::vector<Service> services() {
    return {{tvservice::serviceName, tvservice::messageSet()}, {mmservice::serviceName, mmservice::messageSet()}};
}

std::optional<std::string> failureOfAttempt(const Service& service, std::chrono::milliseconds timeout) {
    const host::LogCapture quiet; // what the queue has to say is in the answer
    News news;
    try {
        host::MessageQueue queue;
        auto& channel = queue.connectTo(service.name, service.messages, sendBufferBytes, &news);
        queue.open(channel);
        queue.start();
        const auto connected = news.wait(timeout);
        if (!connected) return "no answer within " + std::to_string(timeout.count()) + " ms";
        if (*connected) return std::nullopt;
        return channel.failure();
    } catch (const std::exception& error) {
        return error.what();
    }
}

Diagnosis checkService(const Service& service, std::chrono::milliseconds timeout) {
    Diagnosis diagnosis;
    std::string endpoint;
    try {
        endpoint = placeOf(service);
    } catch (const std::runtime_error& error) {
        diagnosis.wrong(service.name, error.what(), "mend that first");
        return diagnosis;
    }
    if (host::isRemote(endpoint)) return checkRemoteService(service, endpoint, timeout);
    if (endpoint.empty())
        diagnosis.warn(service.name, "not running: there is no runtime folder yet", "start it");
    else
        checkLocalService(diagnosis, service, endpoint, timeout);
    return diagnosis;
}

} // namespace tvctl::doctor
