#include "attempt.h"
#include "files.h"
#include "process-state.h"

#include <frame/abstract-marshalling-impl.h>
#include <host/configuration.h>
#include <host/endpoint.h>
#include <host/environment.h>
#include <host/message-queue.h>
#include <mmservice/messages.h>
#include <tvservice/messages.h>

#include <condition_variable>
#include <stdexcept>
#include <thread-safety/mutex.h>

namespace tvctl::doctor {
namespace {

// Minimal, because nothing is sent.
constexpr std::size_t sendBufferBytes = 1;

class FirstAttempt final : public frame::IOConnectionListener {
public:
    void onIOConnectionConnected() override { finish(true); }
    void onIOConnectionConnectionFailed() override { finish(false); }
    void onIOConnectionDisconnected() override {}

    // Whether the first attempt succeeded; nullopt on timeout.
    std::optional<bool> wait(std::chrono::milliseconds timeout) {
        thread_safety::UniqueLock lock(mutex_);
        finished_.wait_for(lock, timeout, [this]() TVSA_REQUIRES(mutex_) { return connected_.has_value(); });
        return connected_;
    }

private:
    void finish(bool connected) {
        thread_safety::LockGuard lock(mutex_);
        if (!connected_) connected_ = connected;
        finished_.notify_all();
    }

    thread_safety::Mutex mutex_;
    std::condition_variable finished_;
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
    const auto failure = tryToConnect(service, timeout);
    if (failure && (failure->isSilent || state.process == 0)) {
        const Silence silence = silenceOf(state.process);
        diagnosis.wrong(service.name, silence.what + "; " + failure->reason, silence.remedy);
    } else if (failure)
        diagnosis.wrong(service.name, process + " rejected this program as a client: " + failure->reason,
                        "run service and framework of the same version");
    else
        diagnosis.ok(service.name, process + " serves " + path + " and has the same messages");
}

// The configured endpoint of a service, or its socket in the runtime folder; empty when that folder does not exist yet.
// Does not create the folder.
std::string existingEndpointOf(const Service& service) {
    int error = 0;
    if (!host::setting("endpoints." + service.name) && !stateOf(host::runtimeDirectoryPath(), error) && error == 0)
        return {};
    return host::endpointOf(service.name);
}

} // namespace

std::vector<Service> services() {
    return {{tvservice::serviceName, tvservice::messageSet()}, {mmservice::serviceName, mmservice::messageSet()}};
}

std::optional<ConnectFailure> tryToConnect(const Service& service, std::chrono::milliseconds timeout) {
    FirstAttempt attempt;
    try {
        host::MessageQueue queue;
        auto& channel = queue.connectTo(service.name, service.messages, sendBufferBytes, &attempt);
        queue.open(channel);
        queue.start();
        const auto connected = attempt.wait(timeout);
        if (!connected) return ConnectFailure{true, "no answer within " + std::to_string(timeout.count()) + " ms"};
        if (*connected) return std::nullopt;
        return ConnectFailure{false, channel.failure()};
    } catch (const std::exception& error) {
        return ConnectFailure{false, error.what()};
    }
}

Diagnosis checkService(const Service& service, std::chrono::milliseconds timeout) {
    Diagnosis diagnosis;
    std::string endpoint;
    try {
        endpoint = existingEndpointOf(service);
    } catch (const std::runtime_error& error) {
        diagnosis.wrong(service.name, error.what(), "fix that first");
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
