// The message-queue IO module of a process: connections to services, and the services that this process offers.
//
// One receiving thread serves all of them; handlers and connection listeners run on it. Messages are sent on the
// caller's thread while the connection accepts them.
#pragma once

#include <frame/abstract-marshalling-impl.h>
#include <frame/io-statistics.h>
#include <frame/message-set.h>
#include <frame/omq-io-module.h>
#include <host/queue-limits.h>
#include <host/stack.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace host {

inline constexpr std::size_t maximumMessageBytes = 16 * 1024 * 1024;

// A connection to a service (MessageQueue::connectTo), or a service and its clients (MessageQueue::serve). Its queue
// owns it.
class QueueChannel : public frame::OmqIOModule {
public:
    // For connectTo: why the last attempt failed or the connection ended; empty while there is a connection and before
    // the first attempt. Set before listeners are notified of a failure. From any thread.
    virtual std::string failure() { return {}; }
    // For serve: the current connections of clients, for messages to some of them. From any thread.
    virtual std::vector<std::uint64_t> clients() { return {}; }

private:
    friend class MessageQueue;
    // On the receiving thread: starts the channel's work, or retries what failed for lack of memory.
    virtual void proceed() noexcept = 0;
};

// A message whose handler has not returned.
struct Handling {
    std::string service;
    std::string message;          // its name
    std::vector<StackCall> calls; // that the receiving thread is in; empty when they cannot be found out
};

class MessageQueue {
public:
    explicit MessageQueue(const QueueLimits& limits = QueueLimits::fromConfiguration());
    ~MessageQueue(); // stops

    // Creates the channel to a service. It accepts handlers and messages at once; listener may be null. It lives as
    // long as the queue, unless it is withdrawn. Throws std::runtime_error when the service is on another host that
    // does not exist, or when keys are missing or invalid.
    QueueChannel& connectTo(const std::string& service, const frame::MessageSet& messages, std::size_t sendBufferBytes,
                            frame::IOConnectionListener* listener);
    // Opens a channel of connectTo: after start, the queue connects it and keeps reconnecting it in the background
    // (first after 50 ms, doubling to 1 s). Nothing arrives through a channel that is not open.
    void open(QueueChannel& channel);
    // Opens several channels, or none when it throws std::bad_alloc.
    void open(const std::vector<QueueChannel*>& channels);
    // Destroys a channel of connectTo that has not been opened; it must not be used any more.
    void withdraw(QueueChannel& channel);

    // Offers a service at its endpoint (socket mode 0600; a stale socket file is replaced, one in use is not). A lock
    // on "<endpoint>.lock" excludes other servers; that file stays. A tcp:// endpoint offers it to the other hosts
    // whose keys are listed. asyncSend through the channel with a null transport goes to all clients. Throws
    // std::runtime_error when the endpoint is not available, or required keys are missing or invalid.
    QueueChannel& serve(const std::string& service, const frame::MessageSet& messages, std::size_t sendBufferBytes);

    void start(); // starts the receiving thread
    // Closes all connections and joins the receiving thread; queued messages are dropped and counted. Channels refuse
    // messages from then on. Must not be called from a handler. Has no effect when called again.
    void stop();

    // Runs work on the receiving thread, after what that is doing; after start when that is to come. Work that is left
    // when the queue stops is discarded. From any thread.
    void post(std::function<void()> work);

    std::vector<frame::IOStatistics> statistics() const;
    // The message that one handler is busy with from the call to its return, which takes this time, or nullopt. No
    // other message is handled meanwhile. From any thread but the receiving one; interrupts that with SIGURG.
    std::optional<Handling> handlingFor(std::chrono::milliseconds time) const;

    MessageQueue(const MessageQueue&) = delete;
    MessageQueue& operator=(const MessageQueue&) = delete;

private:
    struct State;
    State* state_;
};

} // namespace host
