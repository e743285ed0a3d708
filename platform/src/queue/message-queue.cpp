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
#include <vector>

namespace host {
namespace {

// How long to wait for memory: no longer than a client waits before it tries again.
constexpr std::chrono::milliseconds shortagePause{50};
// How often to look whether a handler has returned, and how long to wait for the thread that runs it.
constexpr std::chrono::milliseconds handlingInterval{10}, stackTimeout{200};

} // namespace

struct MessageQueue::State {
    explicit State(const QueueLimits& queueLimits) : limits(queueLimits) {}

    io::Channel& add(std::unique_ptr<io::Channel> channel) {
        thread_safety::LockGuard lock(mutex);
        channels.push_back(std::move(channel));
        io::Channel& added = *channels.back();
        if (stopped) {
            added.refuseSends();
            added.end();
        }
        return added;
    }
    void remove(const QueueChannel& channel) {
        thread_safety::LockGuard lock(mutex);
        std::erase_if(channels, [&](const auto& known) { return known.get() == &channel; });
    }
    // The channels start their work on the receiving thread, now or when that starts.
    void open(const std::vector<QueueChannel*>& added) {
        thread_safety::LockGuard lock(mutex);
        if (stopped) return;
        opened.reserve(opened.size() + added.size());
        if (thread.joinable()) boost::asio::post(io, [this] { proceed(); });
        opened.insert(opened.end(), added.begin(), added.end()); // memory has been reserved
    }
    // Without the mutex, because listeners may call the queue.
    void proceed() noexcept {
        for (std::size_t i = 0; QueueChannel* channel = openedAt(i); ++i) channel->proceed();
    }
    QueueChannel* openedAt(std::size_t i) noexcept {
        thread_safety::LockGuard lock(mutex);
        return i < opened.size() ? opened[i] : nullptr;
    }
    // The receiving thread. A channel that cannot wait for an event because memory has run out stops the loop, which
    // needs no memory. After a pause, in which everything else is served, all channels retry what they could not do.
    void receive() noexcept {
        using Clock = std::chrono::steady_clock;
        std::optional<Clock::time_point> proceedAt;
        proceed();
        for (;;) {
            if (io.stopped()) {
                io.restart();
                if (!proceedAt) proceedAt = Clock::now() + shortagePause;
            }
            if (stopped) return; // checked after the restart, which may have undone the final stop
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
                HOST_LOG(io, vdlDebugFailure, "the receiving thread continues after an error: %s\n", textOf(error));
                io.stop();
            }
        }
    }

    struct Busy {
        const io::Channel* channel;
        io::Channel::Handled message;
    };
    std::optional<Busy> busy() {
        thread_safety::LockGuard lock(mutex);
        for (const auto& channel : channels)
            if (auto message = channel->handled()) return Busy{channel.get(), std::move(*message)};
        return std::nullopt;
    }
    std::vector<StackCall> stack() {
        thread_safety::LockGuard lock(mutex); // keeps the thread from being joined
        return thread.joinable() ? stackOf(thread.native_handle(), stackTimeout) : std::vector<StackCall>();
    }

    const QueueLimits limits;
    boost::asio::io_context io{1};
    boost::asio::executor_work_guard<boost::asio::io_context::executor_type> work{io.get_executor()};
    const std::unique_ptr<io::Transports> transports = io::makeTransports.load()(io);
    thread_safety::Mutex mutex;
    // One for each marshalling member, and one for each service that the program offers; peers add none.
    std::vector<std::unique_ptr<io::Channel>> channels TVSA_GUARDED_BY(mutex);
    std::vector<QueueChannel*> opened TVSA_GUARDED_BY(mutex); // of those; never removed
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
    } catch (...) { // out of memory: the service would never accept a client
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
    // Joins without the mutex: otherwise a handler that calls statistics would deadlock with this.
    std::thread thread;
    {
        thread_safety::LockGuard lock(state_->mutex);
        if (state_->stopped.exchange(true)) return;
        for (const auto& channel : state_->channels) channel->refuseSends();
        thread = std::move(state_->thread);
    }
    state_->io.stop();
    if (thread.joinable()) thread.join();
    thread_safety::LockGuard lock(state_->mutex);
    state_->transports->beginShutdown();
    for (const auto& channel : state_->channels) channel->end();
    state_->transports->endShutdown();
}

void MessageQueue::post(std::function<void()> work) { boost::asio::post(state_->io, std::move(work)); }

std::vector<frame::IOStatistics> MessageQueue::statistics() const {
    thread_safety::LockGuard lock(state_->mutex);
    std::vector<frame::IOStatistics> result;
    for (const auto& channel : state_->channels) result.push_back(channel->statistics());
    return result;
}

std::optional<Handling> MessageQueue::handlingFor(std::chrono::milliseconds time) const {
    const auto end = std::chrono::steady_clock::now() + time;
    const auto first = state_->busy();
    if (!first) return std::nullopt;
    const auto goesOn = [&] {
        const auto now = state_->busy();
        return now && now->channel == first->channel && now->message.number == first->message.number;
    };
    while (std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(handlingInterval);
        if (!goesOn()) return std::nullopt;
    }
    Handling handling{first->channel->service, first->message.name, state_->stack()};
    if (!goesOn()) return std::nullopt;
    return handling;
}

} // namespace host
