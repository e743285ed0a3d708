#include "tls-stream.h"

#include "base/error-text.h"
#include "transport/notify-writable.h"

#include <algorithm>
#include <boost/asio/buffer.hpp>
#include <boost/asio/error.hpp>
#include <boost/asio/post.hpp>
#include <exception>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <utility>

namespace host::remote {
namespace {

using namespace std::chrono_literals;
using Progress = Session::Progress;
using Error = boost::system::error_code;

// Many more than a normal host uses, even while broken streams have not been detected yet.
constexpr long mostStreams = 64; // with one key
// The peer's system may delay an acknowledgement by 200 ms.
constexpr std::chrono::milliseconds shortestSilence = 500ms;
// The system sends probes at growing intervals: to a peer whose receive window is full, and to find out whether a local
// link that was down is up again. A reachable peer answers, so at most one probe is unanswered.
constexpr unsigned unansweredProbes = 2;
// The number of unsent bytes that the system buffers for a peer that reads slowly: about as many as for a local one.
// The rest then stays in the queue, whose limits are known, and does not take megabytes of the system's memory.
constexpr int mostUnsent = 256 * 1024;

} // namespace

TlsStream::TlsStream(boost::asio::io_context& io, std::shared_ptr<Shared> shared, std::shared_ptr<const Keys> keys,
                     bool serving)
    : shared_(std::move(shared)), keys_(std::move(keys)), serving_(serving), socket_(io), heartbeat_(io) {}

KeyCheck::Answer TlsStream::check(const std::string& publicKey) {
    const auto found = keys_->find(publicKey);
    if (found == keys_->end()) {
        refusal_ = (serving_ ? "its key is not in the list of accepted keys: "
                             : "its key is not the one configured for the service: ") +
                   publicKey;
        return Answer::unknown;
    }
    claimedKey_ = &found->second;
    refusal_ = tooManyStreams();
    return refusal_.empty() ? Answer::accepted : Answer::tooMany;
}

std::string TlsStream::tooManyStreams() const {
    if (claimedKey_->use_count() <= mostStreams) return {};
    return "a key has at most " + std::to_string(mostStreams) + " streams: " + **claimedKey_;
}

void TlsStream::authenticate(const User& user) {
    descriptor_ = socket_.native_handle();
    if (!serving_) return shakeHands(user);
    // A service creates no session, which takes memory, for peers that send nothing.
    socket_.async_wait(socket_.wait_read, [this, user](const Error&) { step(user); });
}

bool TlsStream::hasReceived() const {
    Error ignored;
    return session_ || socket_.available(ignored) > 0;
}

// Continues the handshake or the reading; ends the stream if memory runs out.
void TlsStream::step(const User& user) noexcept {
    if (!socket_.is_open()) return;
    try {
        proven_ ? read(user) : shakeHands(user);
    } catch (const std::exception& error) {
        user->onFault(textOf(error));
    }
}

void TlsStream::continueAfter(Progress progress, const User& user) {
    if (progress == Progress::needsInput) return stepOnInput(user);
    if (progress == Progress::again) return boost::asio::post(socket_.get_executor(), [this, user] { step(user); });
    socket_.async_wait(socket_.wait_write, [this, user](const Error&) { step(user); });
}

// Reads directly instead of waiting until the socket is readable, which would be one more system call per message.
void TlsStream::stepOnInput(const User& user) {
    socket_.async_read_some(boost::asio::buffer(session_->room(), Session::roomBytes),
                            [this, user](const Error& error, std::size_t count) {
                                {
                                    thread_safety::LockGuard lock(mutex_);
                                    session_->arrived(count, error == boost::asio::error::eof ? 0 : error.value());
                                }
                                step(user);
                            });
}

void TlsStream::shakeHands(const User& user) {
    if (!session_) {
        session_.reset(new Session(*shared_->tls, descriptor_, serving_, *this));
        for (const auto& [option, value] : {std::pair{TCP_NODELAY, 1}, std::pair{TCP_NOTSENT_LOWAT, mostUnsent}})
            ::setsockopt(descriptor_, IPPROTO_TCP, option, &value,
                         sizeof value); // optional: the stream works without them
    }
    const auto progress = session_->handshake();
    if (progress == Progress::done) refusal_ = tooManyStreams(); // others may have authenticated since check
    if (progress == Progress::over || !refusal_.empty()) {
        return user->onFault(refusal_.empty() ? std::string("TLS handshake failed: ") + session_->reason() : refusal_);
    }
    if (progress != Progress::done) return continueAfter(progress, user);
    key_ = *claimedKey_;
    proven_ = true;
    user->onWritable();
}

void TlsStream::receive(char* room, std::size_t size, User user) {
    if (!room_) watch(user);
    room_ = room;
    size_ = size;
    bool ready;
    {
        thread_safety::LockGuard lock(mutex_);
        ready = over_ || session_->hasInput();
    }
    continueAfter(ready ? Progress::again : Progress::needsInput, user);
}

// Reads all records that have arrived, at most what fits into the session's buffer; then others have their turn.
void TlsStream::read(const User& user) {
    std::size_t count = 0;
    auto progress = over_ ? Progress::over : Progress::done;
    {
        thread_safety::LockGuard lock(mutex_);
        for (bool more = !over_; more; more = progress == Progress::done && count < size_ && session_->hasInput()) {
            std::size_t some = 0;
            progress = session_->read(room_ + count, size_ - count, some);
            count += some;
        }
    }
    over_ = progress == Progress::over;
    if (count > 0) return user->onReceived(count);
    if (over_) return end(*user);
    continueAfter(progress, user);
}

void TlsStream::end(io::StreamUser& user) {
    std::string reason = "broken"; // in case memory runs out
    bool fault;
    {
        thread_safety::LockGuard lock(mutex_); // other threads may still be sending
        fault = session_->isFault();
        try {
            reason = silent_ ? "the peer does not answer" : session_->reason();
        } catch (const std::exception&) {
        }
    }
    fault ? user.onFault(reason) : user.onEnd(reason);
}

std::size_t TlsStream::send(const char* data, std::size_t size, std::error_code& error) noexcept {
    thread_safety::LockGuard lock(mutex_);
    std::size_t taken = 0;
    const auto progress = session_->write(data, size, taken);
    sentSinceHeartbeat_ = sentSinceHeartbeat_ || taken > 0;
    if (progress != Progress::done && progress != Progress::needsRoom)
        error = std::make_error_code(std::errc::broken_pipe);
    return taken;
}

void TlsStream::waitWritable(User user) noexcept { io::notifyWhenWritable(socket_, *this, std::move(user)); }

void TlsStream::breakOff() noexcept { ::shutdown(descriptor_, SHUT_RDWR); }

void TlsStream::close() noexcept {
    Error ignored;
    heartbeat_.cancel(ignored);
    thread_safety::LockGuard lock(mutex_);
    key_.reset();
    if (proven_ && socket_.is_open()) {
        session_->end();
        ::shutdown(descriptor_, SHUT_WR);
        descriptor_ = -1;
        try {
            if (shared_->stopping) shared_->stopped.push_back(io::FileDescriptor(socket_.release(ignored)));
        } catch (const std::exception&) { // out of memory: it is closed at once
        }
    }
    socket_.close(ignored);
}

// Each heartbeat sends something, unless something was sent since the last one, and checks whether the peer's system
// has acknowledged it. That system acknowledges data even while the process there is busy, but not when the link is
// down.
void TlsStream::watch(const std::weak_ptr<io::StreamUser>& user) {
    heartbeat_.expires_after(shared_->heartbeat);
    heartbeat_.async_wait([this, user](const Error& error) {
        const auto owner = error ? nullptr : user.lock(); // the owner of this stream
        if (!owner || !socket_.is_open()) return;
        silent_ = isSilent(); // before sending something new that cannot be acknowledged yet
        if (silent_) return breakOff();
        {
            thread_safety::LockGuard lock(mutex_);
            if (!std::exchange(sentSinceHeartbeat_, false)) session_->probe();
        }
        try {
            watch(user);
        } catch (const std::exception&) { // out of memory
            breakOff();
        }
    });
}

bool TlsStream::isSilent() const {
    tcp_info info{};
    socklen_t size = sizeof info;
    if (getsockopt(descriptor_, IPPROTO_TCP, TCP_INFO, &info, &size) != 0) return false;
    const std::chrono::milliseconds sinceSign(info.tcpi_last_ack_recv);
    return sinceSign >= std::max(3 * shared_->heartbeat, shortestSilence) &&
           (info.tcpi_unacked > 0 || info.tcpi_probes >= unansweredProbes);
}

} // namespace host::remote
