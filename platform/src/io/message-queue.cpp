#include "config/number.h"
#include "io/client-door.h"
#include "io/local-transport.h"
#include "io/log.h"
#include "io/server-door.h"
#include "remote/remote-transport.h"

#include <host/endpoint.h>
#include <host/environment.h>
#include <host/message-queue.h>

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <memory>
#include <mutex>
#include <pthread.h>
#include <thread>
#include <utility>

namespace host {
namespace {

std::size_t limit(const char* setting) { return static_cast<std::size_t>(config::numberOf(setting)); }

} // namespace

QueueLimits QueueLimits::fromConfiguration() {
    return {limit("queue.messages"), limit("queue.bytes"), std::chrono::milliseconds(limit("queue.wait_ms"))};
}

struct MessageQueue::State {
    explicit State(const QueueLimits& queueLimits) : limits(queueLimits) {}

    // The two transports.
    std::unique_ptr<io::Connector> connectorTo(const std::string& service) {
        const std::string endpoint = endpointOf(service);
        if (isRemote(endpoint)) return remote::makeConnector(io, theRelay(), service, endpoint);
        return std::make_unique<io::LocalConnector>(io, endpoint);
    }
    std::unique_ptr<io::Listener> listenerFor(const std::string& service) {
        const std::string endpoint = endpointOf(service);
        if (isRemote(endpoint)) return remote::makeListener(io, theRelay(), service, endpoint);
        return std::make_unique<io::LocalListener>(io, service, endpoint);
    }
    std::shared_ptr<remote::Relay> theRelay() {
        std::lock_guard lock(mutex);
        if (!relay) relay = remote::makeRelay();
        return relay;
    }

    io::Door& add(std::unique_ptr<io::Door> door) {
        std::lock_guard lock(mutex);
        doors.push_back(std::move(door));
        io::Door& added = *doors.back();
        if (stopped) {
            added.refuseFromNowOn();
            added.end();
        }
        return added;
    }
    // The doors' work begins on the receiving thread, now or when that starts.
    void open(std::vector<io::Door*> opened) {
        std::lock_guard lock(mutex);
        if (stopped) return;
        if (thread.joinable())
            begin(std::move(opened));
        else
            openedEarly.insert(openedEarly.end(), opened.begin(), opened.end());
    }
    void begin(std::vector<io::Door*> opened) {
        boost::asio::post(io, [opened = std::move(opened)] {
            for (io::Door* door : opened) door->begin();
        });
    }

    const QueueLimits limits;
    boost::asio::io_context io{1};
    boost::asio::executor_work_guard<boost::asio::io_context::executor_type> work{io.get_executor()};
    std::mutex mutex;                     // guards the rest
    std::shared_ptr<remote::Relay> relay; // once there is a service on another host or for others
    std::vector<std::unique_ptr<io::Door>> doors;
    std::vector<io::Door*> openedEarly; // before the thread started
    std::thread thread;
    bool stopped = false;
};

MessageQueue::MessageQueue(const QueueLimits& limits) : state_(new State(limits)) {
    vdlDebugNameModule(io::debugModule, "io");
}

MessageQueue::~MessageQueue() {
    stop();
    delete state_;
}

frame::OmqIOModule& MessageQueue::connectTo(const std::string& service, const frame::MessageSet& messages,
                                            std::size_t sendBufferBytes, frame::IOConnectionListener* listener) {
    return state_->add(std::make_unique<io::ClientDoor>(state_->io, state_->connectorTo(service), service, messages,
                                                        sendBufferBytes, state_->limits, listener));
}

void MessageQueue::open(frame::OmqIOModule& door) { open(std::vector{&door}); }

void MessageQueue::open(const std::vector<frame::OmqIOModule*>& doors) {
    std::vector<io::Door*> opened;
    opened.reserve(doors.size());
    for (frame::OmqIOModule* door : doors) opened.push_back(static_cast<io::Door*>(door));
    state_->open(std::move(opened));
}

void MessageQueue::withdraw(frame::OmqIOModule& door) {
    std::lock_guard lock(state_->mutex);
    std::erase_if(state_->doors, [&](const auto& one) { return one.get() == &door; });
}

frame::OmqIOModule& MessageQueue::serve(const std::string& service, const frame::MessageSet& messages,
                                        std::size_t sendBufferBytes) {
    io::Door& door = state_->add(std::make_unique<io::ServerDoor>(state_->io, state_->listenerFor(service), service,
                                                                  messages, sendBufferBytes, state_->limits));
    state_->open({&door});
    return door;
}

std::vector<std::uint64_t> MessageQueue::clientsOf(frame::OmqIOModule& served) {
    return static_cast<io::ServerDoor&>(served).clients();
}

std::string MessageQueue::failureOf(frame::OmqIOModule& door) { return static_cast<io::ClientDoor&>(door).failure(); }

void MessageQueue::start() {
    std::lock_guard lock(state_->mutex);
    if (state_->stopped || state_->thread.joinable()) return;
    state_->begin(std::exchange(state_->openedEarly, {}));
    state_->thread = std::thread([&io = state_->io] {
        pthread_setname_np(pthread_self(), "io");
        io.run();
    });
}

void MessageQueue::stop() {
    // A handler that asks for statistics while this waits for it must get them, hence the join outside the mutex.
    std::thread thread;
    {
        std::lock_guard lock(state_->mutex);
        if (std::exchange(state_->stopped, true)) return;
        for (const auto& door : state_->doors) door->refuseFromNowOn();
        thread = std::move(state_->thread);
    }
    state_->io.stop();
    if (thread.joinable()) thread.join();
    std::lock_guard lock(state_->mutex);
    for (const auto& door : state_->doors) door->end();
}

std::vector<frame::IOStatistics> MessageQueue::statistics() const {
    std::lock_guard lock(state_->mutex);
    std::vector<frame::IOStatistics> result;
    for (const auto& door : state_->doors) result.push_back(door->statistics());
    return result;
}

} // namespace host
