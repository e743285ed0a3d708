// The common base of both kinds of channels: handlers, counters and the rules for sending.
#pragma once

#include "handshake.h"
#include "outbox.h"

#include <frame/io-statistics.h>
#include <frame/omq-io-module.h>
#include <host/message-queue.h>

#include <atomic>
#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <thread-safety/mutex.h>
#include <unordered_map>

namespace host::io {

class Connection;

// The handler of an incoming message.
struct Handler {
    frame::MessageHandler function;
    void* context;
    const Plan* plan;
    std::size_t size; // of the top-level form
};

struct Counters {
    std::atomic<std::uint64_t> sent{0}, received{0}, dropped{0}, refused{0}, undecodable{0}, connections{0};
};

// No memory order is needed for counting.
inline void count(std::atomic<std::uint64_t>& counter, std::uint64_t by = 1) {
    counter.fetch_add(by, std::memory_order_relaxed);
}

class Channel : public QueueChannel {
public:
    Channel(boost::asio::io_context& io, const std::string& service, const frame::MessageSet& messages,
            std::size_t sendBufferBytes, const QueueLimits& limits, bool serving);

    int registerMessageHandler(const frame::MsgMeta& meta, frame::MessageHandler handler, void* context,
                               const vdl::EndianTable& table) final;
    int asyncSend(const frame::MsgIds& ids, const frame::MsgMeta& meta, const frame::TransportInfo* transport,
                  const vdl::EndianTable& table, const void* payload, const boost::function<void()>& completed) final;

    // From any thread: asyncSend refuses all later messages.
    void refuseSends() TVSA_EXCLUDES(mutex_);
    // After the receiving thread has ended: closes all connections and drops queued messages.
    virtual void end() = 0;
    frame::IOStatistics statistics() TVSA_EXCLUDES(mutex_);

    // For connections, on the receiving thread.
    virtual void onConnectionReady(Connection& connection) noexcept = 0;
    // fault: whether this side closed it, because of what the peer sent or because memory ran out.
    virtual void onConnectionClosed(Connection& connection, bool wasReady, bool fault, const char* reason) noexcept = 0;
    const Handler* findHandler(const frame::MsgMeta& meta);
    // On the receiving thread, before and after a message of that connection is handled. endHandling returns how many
    // messages to other connections were sent in between.
    void beginHandling(const Connection& connection, std::uint32_t messageId) noexcept;
    unsigned endHandling() noexcept;
    // The message whose handler is running: which one of all that were received, and its name. From any thread; the two
    // may belong to different messages while messages follow each other.
    struct Handled {
        std::uint64_t number;
        std::string name;
    };
    std::optional<Handled> handled() const;
    // A connection that has caused messages to others has paused for this long. Returns for how long it must go on: 0
    // while the others keep pace.
    virtual std::chrono::milliseconds pauseAfter(std::chrono::milliseconds, const Connection&) { return {}; }
    // Why a peer with a valid hello is rejected, or null; on the receiving thread.
    virtual const char* fullReason() const noexcept { return nullptr; }
    // From any thread: whether the queue is stopping, so that received messages are not handled any more.
    bool isStopping() const noexcept { return stopped_; }
    const QueueLimits& limits() const { return limits_; }

    // For connections, on the receiving thread. These take the mutex and call the connection.
    void makeReady(Connection& connection) TVSA_EXCLUDES(mutex_);   // both hellos have been exchanged
    void flushQueued(Connection& connection) TVSA_EXCLUDES(mutex_); // sends what was queued until then
    void resumeFlush(Connection& connection) TVSA_EXCLUDES(mutex_); // the stream is writable again
    bool abandon(Connection& connection) TVSA_EXCLUDES(mutex_);     // closes it; whether it was ready
    // For code of a connection that the channel calls: clang does not know that this is its channel.
    void assertMutexIsHeld() const TVSA_ASSERT_CAPABILITY(mutex_) {}
    // Only the first message that finds the queue full is logged on its own; a line for each would bury all others.
    // When the outbox is empty again, this logs how many more there were.
    void logRefusals(Outbox& outbox) TVSA_REQUIRES(mutex_);

    const std::string service;
    const Handshake handshake;
    Counters counters;

protected:
    friend class Connection;     // for its thread safety annotations
    thread_safety::Mutex mutex_; // guards the outboxes and which connections are ready

    // Queues a message for the connection, or for all. Results like asyncSend; a message is counted where it is
    // refused.
    virtual int dispatch(const Outgoing& message, const frame::TransportInfo* transport) TVSA_REQUIRES(mutex_) = 0;
    // How much of an outbox a message may fill.
    enum class Room { all, allButTheAnswers };
    // Adds a message to an outbox; its connection (null for none) sends the message at once if possible.
    int put(const Outgoing& message, Outbox& outbox, Connection* connection, Room room) TVSA_REQUIRES(mutex_);
    // The maximum number of bytes in an outbox.
    virtual std::size_t mostBytes(const Outbox&) const TVSA_REQUIRES(mutex_) { return limits_.bytes; }
    // Whether an outbox takes few more messages to all clients.
    bool isNearlyFull(const Outbox& outbox) const TVSA_REQUIRES(mutex_);
    int refuse(int result, const frame::MsgMeta& meta, const char* why);
    virtual void addTo(frame::IOStatistics& statistics) TVSA_REQUIRES(mutex_) = 0; // connected and queued
    // On the receiving thread: makes the queue call proceed after a while. Allocates no memory.
    void proceedLater() noexcept { io_.stop(); }

    boost::asio::io_context& io_;
    const std::size_t sendBufferBytes_;
    const QueueLimits limits_;

private:
    const frame::MessageSet messages_;
    int send(const Outgoing& message, const frame::TransportInfo* transport);

    struct MetaHash {
        std::size_t operator()(const frame::MsgMeta& meta) const {
            const std::uint64_t bits = meta.messageId ^ (std::uint64_t{meta.interfaceCode} << 16) ^
                                       (std::uint64_t{meta.instance} << 32) ^ (std::uint64_t{meta.flag} << 8);
            return static_cast<std::size_t>(bits ^ bits >> 32); // combines both halves where size_t has 32 bits
        }
    };
    thread_safety::Mutex handlersMutex_;
    // Entries are never removed: at most one for each message that the service's members register. Peers add none.
    std::unordered_map<frame::MsgMeta, Handler, MetaHash> handlers_ TVSA_GUARDED_BY(handlersMutex_);
    std::atomic<bool> stopped_{false}; // set under the mutex
    // The connection whose message is being handled, and how many messages to others were sent in the meantime,
    // including those of other threads.
    std::atomic<const Connection*> handled_{nullptr};
    std::atomic<std::uint32_t> handledId_{0};
    std::atomic<unsigned> forOthers_{0};
};

} // namespace host::io
