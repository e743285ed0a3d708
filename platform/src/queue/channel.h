// What the channels of both sides have in common: handlers, counters, the rules of sending.
#pragma once

#include "handshake.h"
#include "outbox.h"

#include <frame/io-statistics.h>
#include <frame/omq-io-module.h>
#include <host/message-queue.h>

#include <atomic>
#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <string>
#include <thread-safety/mutex.h>
#include <unordered_map>

namespace host::io {

class Connection;

// A bound incoming message.
struct Handler {
    frame::MessageHandler function;
    void* context;
    const Plan* plan;
    std::size_t size; // of the top-level form
};

struct Counters {
    std::atomic<std::uint64_t> sent{0}, received{0}, dropped{0}, refused{0}, undecodable{0}, connections{0};
};

// Counting never orders anything.
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

    // From any thread: asyncSend refuses from now on.
    void refuseFromNowOn() TVSA_EXCLUDES(mutex_);
    // When the receiving thread has ended: closes everything and drops what waits.
    virtual void end() = 0;
    frame::IOStatistics statistics() TVSA_EXCLUDES(mutex_);

    // For connections, on the receiving thread.
    virtual void onConnectionReady(Connection& connection) noexcept = 0;
    // fault: whether this side ended it, because of what the peer did or for want of memory.
    virtual void onConnectionClosed(Connection& connection, bool wasReady, bool fault, const char* reason) noexcept = 0;
    const Handler* findHandler(const frame::MsgMeta& meta);
    // On the receiving thread, before and after a message of that connection is handled. The end returns how many
    // messages for other connections that has led to.
    void beginHandling(const Connection& connection) noexcept;
    unsigned endHandling() noexcept;
    // Whether so much waits for another connection than this one that what leads to more should wait.
    virtual bool othersAreBehind(const Connection&) { return false; }
    // Why a peer is rejected whose hello is right, or null; on the receiving thread.
    virtual const char* whyFull() const noexcept { return nullptr; }
    // From any thread: whether the queue stops, so that what has arrived is not handled any more.
    bool isStopping() const noexcept { return stopped_; }
    const QueueLimits& limits() const { return limits_; }

    // For connections, on the receiving thread. These take the mutex and call the connection.
    void makeReady(Connection& connection) TVSA_EXCLUDES(mutex_);    // both hellos are through
    void flushWaiting(Connection& connection) TVSA_EXCLUDES(mutex_); // sends what waited for that
    void flushOn(Connection& connection) TVSA_EXCLUDES(mutex_);      // the stream takes more
    bool abandon(Connection& connection) TVSA_EXCLUDES(mutex_);      // ends it; whether it was ready
    // For what a connection does when the channel calls it: clang does not know that this is its channel.
    void assertMutexIsHeld() const TVSA_ASSERT_CAPABILITY(mutex_) {}
    // A line for each message that finds its queue full would bury all others, so that only the first one has its own.
    // This says how many came after it, when the outbox is empty.
    void tellRefusals(Outbox& outbox) TVSA_REQUIRES(mutex_);

    const std::string service;
    const Handshake handshake;
    Counters counters;

protected:
    friend class Connection;     // for the annotations of what is guarded there
    thread_safety::Mutex mutex_; // guards the outboxes and which connections are ready

    // Hands a message to the connection, or all of them. Results as of asyncSend; whoever refuses has counted it.
    virtual int dispatch(const Outgoing& message, const frame::TransportInfo* transport) TVSA_REQUIRES(mutex_) = 0;
    // How much of an outbox a message may take.
    enum class Room { all, allButTheAnswers };
    // Puts a message into an outbox, whose connection (null for none) sends it at once if it can.
    int put(const Outgoing& message, Outbox& outbox, Connection* connection, Room room) TVSA_REQUIRES(mutex_);
    // How many bytes may wait in an outbox.
    virtual std::size_t mostBytes(const Outbox&) const TVSA_REQUIRES(mutex_) { return limits_.bytes; }
    int refuse(int result, const frame::MsgMeta& meta, const char* why);
    virtual void addTo(frame::IOStatistics& statistics) TVSA_REQUIRES(mutex_) = 0; // connected and queued
    // On the receiving thread: has the queue call proceed in a while, for which it needs no memory.
    void proceedLater() noexcept { io_.stop(); }

    boost::asio::io_context& io_;
    const std::size_t sendBufferBytes_;
    const QueueLimits limits_;

private:
    int send(const Outgoing& message, const frame::TransportInfo* transport);

    struct MetaHash {
        std::size_t operator()(const frame::MsgMeta& meta) const {
            const std::uint64_t bits = meta.messageId ^ (std::uint64_t{meta.interfaceCode} << 16) ^
                                       (std::uint64_t{meta.instance} << 32) ^ (std::uint64_t{meta.flag} << 8);
            return static_cast<std::size_t>(bits ^ bits >> 32); // of both halves where only one fits
        }
    };
    thread_safety::Mutex handlersMutex_;
    // Never removed from: as many as its service's members bind, one for each message at most. Peers add none.
    std::unordered_map<frame::MsgMeta, Handler, MetaHash> handlers_ TVSA_GUARDED_BY(handlersMutex_);
    std::atomic<bool> stopped_{false}; // set under the mutex
    // Whose message is handled now, and how many messages for others that has led to. Other threads' messages count
    // with them.
    std::atomic<const Connection*> handled_{nullptr};
    std::atomic<unsigned> forOthers_{0};
};

} // namespace host::io
