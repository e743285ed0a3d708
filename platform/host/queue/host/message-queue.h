// The message-queue IO module of a process: connections to services, and the services that this process offers.
//
// One receiving thread serves all of them; handlers and connection news run on it. Sending happens on the caller's
// thread while the connection takes it.
#pragma once

#include <frame/abstract-marshalling-impl.h>
#include <frame/io-statistics.h>
#include <frame/message-set.h>
#include <frame/omq-io-module.h>
#include <host/queue-limits.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace host {

inline constexpr std::size_t maximumMessageBytes = 16 * 1024 * 1024;

// A connection to a service (MessageQueue::connectTo), or a service and its clients (MessageQueue::serve). Its queue
// owns it.
class QueueChannel : public frame::OmqIOModule {
public:
    // Of connectTo: why the newest attempt failed, or why the connection ended; empty while there is a connection and
    // before the first attempt. Listeners that are told of a failure find its reason here. From any thread.
    virtual std::string failure() { return {}; }
    // Of serve: the connections that the clients have right now, for messages to some of them. From any thread.
    virtual std::vector<std::uint64_t> clients() { return {}; }

private:
    friend class MessageQueue;
    // On the receiving thread: the channel begins its work, or goes on with what it had no memory for.
    virtual void proceed() noexcept = 0;
};

class MessageQueue {
public:
    explicit MessageQueue(const QueueLimits& limits = QueueLimits::fromConfiguration());
    ~MessageQueue(); // stops

    // The channel to a service. It takes handlers and messages at once; listener may be null. It lives as long as the
    // queue, unless it is withdrawn. Throws std::runtime_error when the service is on another host and that host does
    // not exist, or keys are missing or unfit.
    QueueChannel& connectTo(const std::string& service, const frame::MessageSet& messages, std::size_t sendBufferBytes,
                            frame::IOConnectionListener* listener);
    // Lets a channel of connectTo have its connection, which is made and remade in the background once start has run
    // (50 ms after a failure, doubling to 1 s). Nothing arrives through a channel before.
    void open(QueueChannel& channel);
    // Opens several, or none when it throws std::bad_alloc.
    void open(const std::vector<QueueChannel*>& channels);
    // Takes a channel of connectTo back that has not been opened; nobody may use it any more.
    void withdraw(QueueChannel& channel);

    // Offers a service at its endpoint (socket mode 0600; a left-over socket file is replaced, one in use is not). A
    // lock on "<endpoint>.lock" keeps other servers away; that file stays. At tcp:// it is offered to other hosts, to
    // those whose keys are listed. asyncSend through the channel with a null transport goes to every client. Throws
    // std::runtime_error when the endpoint cannot be had, or keys that it needs are missing or unfit.
    QueueChannel& serve(const std::string& service, const frame::MessageSet& messages, std::size_t sendBufferBytes);

    void start(); // starts the receiving thread
    // Ends all connections and joins the receiving thread; messages still waiting are dropped and counted. Channels
    // then refuse. Must not be called from a handler. Harmless when called again.
    void stop();

    std::vector<frame::IOStatistics> statistics() const;

    MessageQueue(const MessageQueue&) = delete;
    MessageQueue& operator=(const MessageQueue&) = delete;

private:
    struct State;
    State* state_;
};

} // namespace host
