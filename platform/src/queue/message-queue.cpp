#include "base/error-text.h"
#include "client-channel.h"
#include "log/log.h"
#include "service-channel.h"
#include "transport/transports.h"

#include <host/message-queue.h>

#include <atomic>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <chrono>
#include <exception>
#include <memory>
#include <optional>
#include <pthread.h>
#include <thread-safety/mutex.h>
#include <thread>
#include <utility>

namespace host {
namespace {

// Until there may be memory again: no longer than a client waits before it tries again.
constexpr std::chrono::milliseconds shortagePause{50};

} // namespace

struct MessageQueue::State {
    explicit State(const QueueLimits& queueLimits) : limits(queueLimits) {}

    io::Channel& add(std::unique_ptr<io::Channel> channel) {
        thread_safety::LockGuard lock(mutex);
        channels.push_back(std::move(channel));
        io::Channel& added = *channels.back();
        if (stopped) {
            added.refuseFromNowOn();
            added.end();
        }
        return added;
    }
    void remove(const QueueChannel& channel) {
        thread_safety::LockGuard lock(mutex);
        std::erase_if(channels, [&](const auto& one) { return one.get() == &channel; });
    }
    // The channels' work begins on the receiving thread, now or when that starts.
    void open(const std::vector<QueueChannel*>& more) {
        thread_safety::LockGuard lock(mutex);
        if (stopped) return;
        opened.reserve(opened.size() + more.size());
        if (thread.joinable()) boost::asio::post(io, [this] { proceed(); });
        opened.insert(opened.end(), more.begin(), more.end()); // for which there is memory
    }
    // Not under the mutex, as listeners may call the queue.
    void proceed() noexcept {
        for (std::size_t i = 0; QueueChannel* channel = openedAt(i); ++i) channel->proceed();
    }
    QueueChannel* openedAt(std::size_t i) noexcept {
        thread_safety::LockGuard lock(mutex);
        return i < opened.size() ? opened[i] : nullptr;
    }
    // The receiving thread. A channel that has no memory for what it has to wait for stops the loop, as that needs
    // none; after a while, in which everything else is served, all channels go on with what they could not do.
    void receive() noexcept {
        using Clock = std::chrono::steady_clock;
        std::optional<Clock::time_point> proceedAt;
        proceed();
        for (;;) {
            if (io.stopped()) {
                io.restart();
                if (!proceedAt) proceedAt = Clock::now() + shortagePause;
            }
            if (stopped) return; // looked at after the restart, which may have undone the stop that is for good
            try {
                if (!proceedAt) {
                    io.run();
                    continue;
                }
                io.run_until(*proceedAt);
                if (Clock::now() < *proceedAt) continue;
                proceedAt.reset();
                proceed();
            } catch (const std::exception& error) {
                HOST_LOG(io, vdlDebugFailure, "the receiving thread goes on after an error: %s\n", textOf(error));
                io.stop();
            }
        }
    }

    const QueueLimits limits;
    boost::asio::io_context io{1};
    boost::asio::executor_work_guard<boost::asio::io_context::executor_type> work{io.get_executor()};
    const std::unique_ptr<io::Transports> transports = io::makeTransports.load()(io);
    thread_safety::Mutex mutex;
    // One for each marshalling member, and one for each service that the program offers; peers add none.
    std::vector<std::unique_ptr<io::Channel>> channels TVSA_GUARDED_BY(mutex);
    std::vector<QueueChannel*> opened TVSA_GUARDED_BY(mutex); // of those, never removed from
    std::thread thread TVSA_GUARDED_BY(mutex);
    std::atomic<bool> stopped{false}; // set under the mutex
};

MessageQueue::MessageQueue(const QueueLimits& limits) : state_(new State(limits)) { nameModule(Module::io, "io"); }

MessageQueue::~MessageQueue() {
    stop();
    delete state_;
}

QueueChannel& MessageQueue::connectTo(const std::string& service, const frame::MessageSet& messages,
                                      std::size_t sendBufferBytes, frame::IOConnectionListener* listener) {
    return state_->add(std::make_unique<io::ClientChannel>(state_->io, state_->transports->connectorTo(service),
                                                           service, messages, sendBufferBytes, state_->limits,
                                                           listener));
}

void MessageQueue::open(QueueChannel& channel) { open(std::vector{&channel}); }

void MessageQueue::open(const std::vector<QueueChannel*>& channels) { state_->open(channels); }

void MessageQueue::withdraw(QueueChannel& channel) { state_->remove(channel); }

QueueChannel& MessageQueue::serve(const std::string& service, const frame::MessageSet& messages,
                                  std::size_t sendBufferBytes) {
    QueueChannel& channel = state_->add(std::make_unique<io::ServiceChannel>(
        state_->io, state_->transports->listenerFor(service), service, messages, sendBufferBytes, state_->limits));
    try {
        state_->open({&channel});
    } catch (...) { // no memory: nobody would ever be let in
        state_->remove(channel);
        throw;
    }
    return channel;
}

void MessageQueue::start() {
    thread_safety::LockGuard lock(state_->mutex);
    if (state_->stopped || state_->thread.joinable()) return;
    state_->thread = std::thread([state = state_] {
        pthread_setname_np(pthread_self(), "io");
        state->receive();
    });
}

void MessageQueue::stop() {
    // A handler that asks for statistics while this waits for it must get them, hence the join outside the mutex.
    std::thread thread;
    {
        thread_safety::LockGuard lock(state_->mutex);
        if (state_->stopped.exchange(true)) return;
        for (const auto& channel : state_->channels) channel->refuseFromNowOn();
        thread = std::move(state_->thread);
    }
    state_->io.stop();
    if (thread.joinable()) thread.join();
    thread_safety::LockGuard lock(state_->mutex);
    state_->transports->beginFarewell();
    for (const auto& channel : state_->channels) channel->end();
    state_->transports->endFarewell();
}

std::vector<frame::IOStatistics> MessageQueue::statistics() const {
    thread_safety::LockGuard lock(state_->mutex);
    std::vector<frame::IOStatistics> result;
    for (const auto& channel : state_->channels) result.push_back(channel->statistics());
    return result;
}

} // namespace host
