// A client of a service that records the answers to its requests.
#pragma once

#include "protocol.h"

#include <frame/abstract-marshalling-impl.h>
#include <host/message-queue.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <list>
#include <optional>
#include <string>
#include <thread-safety/mutex.h>
#include <vector>

namespace tvctl::conformance {

using Clock = std::chrono::steady_clock;

struct Answer {
    std::vector<Entry> entries;
    Clock::time_point when;
};

// All calls are for one thread. Connects when it is created, with its own queue.
class Client final : private frame::IOConnectionListener {
public:
    // Keeps so many answers; a service that sends more is not recorded further.
    static constexpr std::size_t mostAnswers = 10000;

    // messages: those that it claims to know. Throws std::runtime_error when the endpoint cannot be used.
    Client(const Protocol& protocol, const frame::MessageSet& messages);
    explicit Client(const Protocol& protocol) : Client(protocol, protocol.messages) {}
    ~Client() override;

    // Whether the first attempt to connect succeeded; nullopt on timeout.
    std::optional<bool> connected(std::chrono::milliseconds timeout);
    std::string failure() { return channel_.failure(); } // why there is no connection
    bool lostConnection() const;

    int send(const std::vector<Request>& requests) { return protocol_.send(channel_, requests); }
    int send(const Sample& sample) { return sample.send(channel_); }
    // Sends any bytes as the body of a message.
    int send(const frame::MsgMeta& meta, const std::string& body);

    // All answers so far, or since a number of them.
    std::vector<Answer> answers(std::size_t after = 0) const;
    // Waits until there are more than that many answers. Returns false on timeout and when the connection is lost.
    bool waitForAnswer(std::size_t after, Clock::time_point until) const;

    // From the next message on it reads nothing, until it is destroyed.
    void stopReading();
    // Waits for that message; false when none arrives within the timeout.
    bool hasStoppedReading(std::chrono::milliseconds timeout);

    std::uint64_t undecodable() const; // messages

    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

private:
    void onIOConnectionConnected() override;
    void onIOConnectionConnectionFailed() override;
    void onIOConnectionDisconnected() override;
    void onMessage(const frame::MsgMeta& meta, const void* payload);

    const Protocol& protocol_;
    mutable thread_safety::Mutex mutex_;
    mutable std::condition_variable changed_;
    std::vector<Answer> answers_ TVSA_GUARDED_BY(mutex_);
    std::optional<bool> connected_ TVSA_GUARDED_BY(mutex_);
    bool lost_ TVSA_GUARDED_BY(mutex_) = false;
    bool reads_ TVSA_GUARDED_BY(mutex_) = true, isHeld_ TVSA_GUARDED_BY(mutex_) = false;
    host::MessageQueue queue_;
    host::QueueChannel& channel_;
};

} // namespace tvctl::conformance
