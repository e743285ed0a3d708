#include "client.h"

#include <utility>

namespace tvctl::conformance {
namespace {

constexpr std::size_t sendBufferBytes = 16384;

// The table of a body of so many bytes without structure. The marshaller keeps the plans of tables until the process
// ends, so the tables stay, too.
const vdl::EndianTable& tableOf(std::size_t bytes) {
    static const vdl::EndianEntry end{0, 0, vdl::EndianEntry::terminator};
    static std::list<vdl::EndianTable> tables;
    for (const vdl::EndianTable& table : tables)
        if (table.size == bytes) return table;
    return tables.emplace_back(vdl::EndianTable{static_cast<std::uint32_t>(bytes), &end});
}

} // namespace

Client::Client(const Protocol& protocol, const frame::MessageSet& messages)
    : protocol_(protocol), channel_(queue_.connectTo(protocol.service, messages, sendBufferBytes, this)) {
    const frame::MessageHandler handler = [](const frame::MsgMeta& meta, const frame::TransportInfo&,
                                             const void* payload, void* context) {
        static_cast<Client*>(context)->onMessage(meta, payload);
        return 0;
    };
    for (const auto* notification : protocol.notifications)
        channel_.registerMessageHandler(notification->meta, handler, this, *notification->table);
    queue_.open(channel_);
    queue_.start();
}

Client::~Client() {
    {
        const thread_safety::LockGuard lock(mutex_);
        reads_ = true;
        changed_.notify_all();
    }
    queue_.stop();
}

std::optional<bool> Client::connected(std::chrono::milliseconds timeout) {
    thread_safety::UniqueLock lock(mutex_);
    changed_.wait_for(lock, timeout, [this]() TVSA_REQUIRES(mutex_) { return connected_.has_value(); });
    return connected_;
}

bool Client::lostConnection() const {
    const thread_safety::LockGuard lock(mutex_);
    return lost_;
}

int Client::send(const frame::MsgMeta& meta, const std::string& body) {
    return channel_.asyncSend(frame::MsgIds::none, meta, nullptr, tableOf(body.size()), body.data(), {});
}

std::vector<Answer> Client::answers(std::size_t after) const {
    const thread_safety::LockGuard lock(mutex_);
    if (after >= answers_.size()) return {};
    return {answers_.begin() + static_cast<std::ptrdiff_t>(after), answers_.end()};
}

bool Client::waitForAnswer(std::size_t after, Clock::time_point until) const {
    thread_safety::UniqueLock lock(mutex_);
    changed_.wait_until(lock, until, [&]() TVSA_REQUIRES(mutex_) { return answers_.size() > after || lost_; });
    return answers_.size() > after;
}

void Client::stopReading() {
    const thread_safety::LockGuard lock(mutex_);
    reads_ = false;
}

bool Client::hasStoppedReading(std::chrono::milliseconds timeout) {
    thread_safety::UniqueLock lock(mutex_);
    return changed_.wait_for(lock, timeout, [this]() TVSA_REQUIRES(mutex_) { return isHeld_; });
}

std::uint64_t Client::undecodable() const {
    std::uint64_t count = 0;
    for (const auto& statistics : queue_.statistics()) count += statistics.undecodable;
    return count;
}

void Client::onIOConnectionConnected() {
    const thread_safety::LockGuard lock(mutex_);
    if (!connected_) connected_ = true;
    changed_.notify_all();
}

void Client::onIOConnectionConnectionFailed() {
    const thread_safety::LockGuard lock(mutex_);
    if (!connected_) connected_ = false;
    changed_.notify_all();
}

void Client::onIOConnectionDisconnected() {
    const thread_safety::LockGuard lock(mutex_);
    lost_ = true;
    changed_.notify_all();
}

void Client::onMessage(const frame::MsgMeta& meta, const void* payload) {
    const bool isAnswer = meta == protocol_.answer;
    auto entries = isAnswer ? protocol_.entriesOf(payload) : std::vector<Entry>{};
    thread_safety::UniqueLock lock(mutex_);
    if (isAnswer && answers_.size() < mostAnswers) answers_.push_back({std::move(entries), Clock::now()});
    isHeld_ = !reads_;
    changed_.notify_all();
    changed_.wait(lock, [this]() TVSA_REQUIRES(mutex_) { return reads_; });
}

} // namespace tvctl::conformance
