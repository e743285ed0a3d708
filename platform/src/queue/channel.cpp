#include "channel.h"

#include "connection.h"
#include "log/log.h"
#include "recorder/recorder.h"

#include <host/result.h>

#include <algorithm>
#include <boost/asio/post.hpp>
#include <chrono>
#include <exception>
#include <new>
#include <optional>
#include <stdexcept>

namespace host::io {
namespace {
// The fraction of an outbox that is reserved for answers to its peer, so that messages to all peers cannot fill it.
constexpr std::size_t partForAnswers = 8;
constexpr std::size_t withoutAnswers(std::size_t most) { return most - most / partForAnswers; }
// A queue with room for fewer messages to all is nearly full. A client is stopped after causing half as many.
constexpr std::size_t fewMore = 128;
} // namespace

Channel::Channel(boost::asio::io_context& io, const std::string& service_, const frame::MessageSet& messages,
                 std::size_t sendBufferBytes, const QueueLimits& limits, bool serving)
    : service(service_),
      handshake(service_, messages, serving),
      io_(io),
      sendBufferBytes_(sendBufferBytes),
      limits_(limits),
      messages_(messages) {}

int Channel::registerMessageHandler(const frame::MsgMeta& meta, frame::MessageHandler handler, void* context,
                                    const vdl::EndianTable& table) {
    const Plan* plan;
    try {
        plan = &planOf(table);
    } catch (const std::invalid_argument& error) {
        HOST_LOG(io, vdlDebugFailure, "service %s: handler of message 0x%08x refused: %s\n", service.c_str(),
                 meta.messageId, error.what());
        return -22;
    }
    thread_safety::LockGuard lock(handlersMutex_);
    return handlers_.try_emplace(meta, Handler{handler, context, plan, table.size}).second ? 0 : -17;
}

const Handler* Channel::findHandler(const frame::MsgMeta& meta) {
    thread_safety::LockGuard lock(handlersMutex_);
    const auto found = handlers_.find(meta);
    return found == handlers_.end() ? nullptr : &found->second;
}

int Channel::asyncSend(const frame::MsgIds& ids, const frame::MsgMeta& meta, const frame::TransportInfo* transport,
                       const vdl::EndianTable& table, const void* payload, const boost::function<void()>& completed) {
    int result;
    try {
        result = send({ids, meta, planOf(table), payload}, transport);
    } catch (const std::length_error& error) {
        result = refuse(-90, meta, error.what());
    } catch (const std::invalid_argument& error) {
        result = refuse(-22, meta, error.what());
    } catch (...) { // out of memory
        if (completed) completed();
        throw;
    }
    if (completed) completed();
    return result;
}

int Channel::send(const Outgoing& message, const frame::TransportInfo* transport) {
    thread_safety::LockGuard lock(mutex_);
    if (stopped_) return refuse(-108, message.meta, "the message queue has stopped");
    return dispatch(message, transport);
}

void Channel::beginHandling(const Connection& connection, std::uint32_t messageId) noexcept {
    forOthers_.store(0, std::memory_order_relaxed);
    handledId_.store(messageId, std::memory_order_relaxed);
    handled_.store(&connection, std::memory_order_relaxed);
}

unsigned Channel::endHandling() noexcept {
    handled_.store(nullptr, std::memory_order_relaxed);
    return forOthers_.load(std::memory_order_relaxed);
}

std::optional<Channel::Handled> Channel::handled() const {
    if (!handled_.load(std::memory_order_relaxed)) return std::nullopt;
    const auto id = handledId_.load(std::memory_order_relaxed);
    const auto* message = std::find_if(messages_.begin(), messages_.end(),
                                       [&](const auto& description) { return description.meta.messageId == id; });
    return Handled{counters.received.load(std::memory_order_relaxed), message == messages_.end() ? "" : message->name};
}

int Channel::put(const Outgoing& message, Outbox& outbox, Connection* connection, Room room) {
    if (const Connection* handled = handled_.load(std::memory_order_relaxed); handled && handled != connection)
        forOthers_.fetch_add(1, std::memory_order_relaxed);
    const auto full = [&] {
        count(counters.refused);
        if (outbox.addRefusal() == 1)
            HOST_LOG(io, vdlDebugFailure,
                     "service %s: message 0x%08x refused: %zu messages (%zu bytes) are queued already\n",
                     service.c_str(), message.meta.messageId, outbox.messages(), outbox.bytes());
        return -11;
    };
    const auto shareOf = [room](std::size_t most) { return room == Room::all ? most : withoutAnswers(most); };
    if (outbox.messages() >= shareOf(limits_.messages)) return full();
    const bool isFirst = !message.frame || message.frame->size() == 0; // of its outboxes
    const auto deadline = connection ? Outbox::Time::max() : std::chrono::steady_clock::now() + limits_.wait;
    outbox.add(message, deadline);
    if (outbox.bytes() > shareOf(mostBytes(outbox))) {
        outbox.retractLast();
        return full();
    }
    if (isFirst)
        recorder::recordMessage(EventFlags::sent, message.frame || !connection ? 0 : connection->number(), service,
                                outbox.last());
    if (connection) connection->flush();
    return 0;
}

bool Channel::isNearlyFull(const Outbox& outbox) const {
    return outbox.messages() + fewMore > withoutAnswers(limits_.messages) ||
           outbox.bytes() > withoutAnswers(mostBytes(outbox)) / 2;
}

void Channel::makeReady(Connection& connection) {
    thread_safety::LockGuard lock(mutex_);
    connection.setReady();
}

void Channel::flushQueued(Connection& connection) {
    thread_safety::LockGuard lock(mutex_);
    if (!connection.outbox().empty()) connection.flush();
}

void Channel::resumeFlush(Connection& connection) {
    thread_safety::LockGuard lock(mutex_);
    connection.resumeFlush();
}

bool Channel::abandon(Connection& connection) {
    thread_safety::LockGuard lock(mutex_);
    const bool wasReady = connection.ready();
    count(counters.dropped, connection.outbox().dropPartlySent());
    connection.abandon();
    return wasReady;
}

void Channel::logRefusals(Outbox& outbox) {
    if (!outbox.empty()) return;
    if (const auto refusals = outbox.takeRefusals(); refusals > 1)
        HOST_LOG(io, vdlDebugFailure, "service %s: %zu more messages were refused while the queue was full\n",
                 service.c_str(), refusals - 1);
}

int Channel::refuse(int result, const frame::MsgMeta& meta, const char* why) {
    count(counters.refused);
    HOST_LOG(io, vdlDebugFailure, "service %s: message 0x%08x refused (%s): %s\n", service.c_str(), meta.messageId,
             ResultText(result).text(), why);
    return result;
}

void Channel::refuseSends() {
    thread_safety::LockGuard lock(mutex_);
    stopped_ = true;
}

frame::IOStatistics Channel::statistics() {
    frame::IOStatistics result;
    result.service = service;
    result.sent = counters.sent.load(std::memory_order_relaxed);
    result.received = counters.received.load(std::memory_order_relaxed);
    result.dropped = counters.dropped.load(std::memory_order_relaxed);
    result.refused = counters.refused.load(std::memory_order_relaxed);
    result.undecodable = counters.undecodable.load(std::memory_order_relaxed);
    const auto connections = counters.connections.load(std::memory_order_relaxed);
    result.reconnects = connections > 0 ? connections - 1 : 0;
    thread_safety::LockGuard lock(mutex_);
    addTo(result);
    return result;
}

} // namespace host::io
