#include "connection.h"

#include "base/error-text.h"
#include "base/guarded-call.h"
#include "byte-order.h"
#include "log/log.h"
#include "recorder/recorder.h"

#include <host/message-queue.h>

#include <atomic>
#include <boost/asio/post.hpp>
#include <chrono>
#include <exception>
#include <utility>

namespace host::io {
namespace {

constexpr std::chrono::seconds helloTimeout{2};
// The minimum rate at which a message must arrive. Otherwise a peer could occupy memory for it by sending a byte now
// and then. A link with a delay of 50 ms that loses 5 % of its packets still transfers twice as much.
constexpr std::size_t leastBytesPerSecond = 32 * 1024;
// How many messages of one peer are handled in one turn, before other peers have theirs: enough to make the cost of a
// turn negligible, and few enough that many peers with slow handlers delay nobody for long.
constexpr unsigned mostPerTurn = 32;
// The maximum duration of a turn, in case single messages take long.
constexpr std::chrono::milliseconds longestTurn{2};
// Handling a peer's message may send messages to other peers, up to some hundred for one. After this many, the peer may
// have to pause.
constexpr unsigned manyForOthers = 64;
std::atomic<std::uint64_t> lastNumber{0};

} // namespace

Connection::Connection(boost::asio::io_context& io, std::unique_ptr<Stream> stream, Channel& channel,
                       std::shared_ptr<Outbox> outbox)
    : channel_(channel),
      stream_(std::move(stream)),
      timer_(io),
      pauseTimer_(io),
      incoming_(stream_->peer()),
      outbox_(std::move(outbox)),
      number_(++lastNumber) {}

// Runs a step that may run out of memory, and closes the connection if it does: otherwise nothing more would be read
// from the peer, or the hello timeout would not apply.
template <class Step> void Connection::orClose(const Step& step) noexcept {
    try {
        step();
    } catch (const std::exception& error) {
        if (incoming_.size() > 0 && helloReceived_)
            count(channel_.counters.undecodable); // the message that is lost with it
        reject(textOf(error));
    }
}

void Connection::open() noexcept {
    orClose([this] {
        timer_.expires_after(helloTimeout);
        timer_.async_wait([self = shared_from_this()](const boost::system::error_code& error) {
            if (!error && !self->closed_ && !self->helloReceived_) self->reject("peer sent no hello within 2 s");
        });
        writeHello();
        read();
    });
}

void Connection::writeHello() {
    const std::string& hello = channel_.handshake.hello();
    while (helloWritten_ < hello.size()) {
        std::error_code error;
        const auto taken = stream_->send(hello.data() + helloWritten_, hello.size() - helloWritten_, error);
        if (error) return; // the peer has gone; reading reports that, after the data it sent before
        if (taken == 0) return stream_->waitWritable(shared_from_this());
        helloWritten_ += taken;
    }
    helloSent_ = true;
    if (helloReceived_) becomeReady();
}

void Connection::becomeReady() {
    channel_.makeReady(*this);
    count(channel_.counters.connections);
    recorder::record(EventKind::connection, number_, channel_.service, "connected");
    channel_.onConnectionReady(*this);
    channel_.flushQueued(*this);
}

void Connection::setReady() {
    channel_.assertMutexIsHeld();
    ready_ = true;
}

void Connection::flush() {
    channel_.assertMutexIsHeld();
    if (waitingWritable_) return;
    std::error_code error;
    while (!outbox_->empty()) {
        if (const auto taken = stream_->send(outbox_->data(), outbox_->bytes(), error)) {
            if (const auto whole = outbox_->markSent(taken)) count(channel_.counters.sent, whole);
            continue;
        }
        // Once the stream is broken, its messages wait for the next connection. The receiving thread detects the break
        // by reading, after the data that the peer sent before it.
        waitingWritable_ = true;
        lastWritable_ = std::chrono::steady_clock::now();
        return error ? stream_->breakOff() : stream_->waitWritable(shared_from_this());
    }
    channel_.logRefusals(*outbox_);
}

void Connection::onWritable() { helloSent_ ? channel_.resumeFlush(*this) : writeHello(); }

void Connection::resumeFlush() {
    channel_.assertMutexIsHeld();
    waitingWritable_ = false;
    flush();
}

void Connection::read() { stream_->receive(incoming_.room(), incoming_.roomSize(), shared_from_this()); }

void Connection::onEnd(const std::string& reason) { close(reason.c_str(), false); }

void Connection::onFault(const std::string& reason) { reject(reason.c_str()); }

void Connection::onReceived(std::size_t count) {
    incoming_.added(count);
    arrived_ += count;
    takeTurn();
}

// Handles received data, and reads on when all of it has been handled.
void Connection::takeTurn() noexcept {
    orClose([this] {
        if (!helloReceived_ && !handleHello()) return;
        if (helloReceived_ && !handleFrames()) return;
        incoming_.makeRoom(frameBegun());
        if (helloReceived_ && incoming_.size() > 0 && !watching_) watchProgress();
        read();
    });
}

// The size of the partly received frame; 0 while it is unknown.
std::size_t Connection::frameBegun() {
    if (!helloReceived_ || incoming_.size() < sizeof(std::uint32_t)) return 0;
    return frameHeaderBytes + load32(incoming_.data(), swap_);
}

// Gives others their turn before this connection's next one. Returns false when there is no memory for that.
bool Connection::yield() noexcept {
    try {
        boost::asio::post(timer_.get_executor(), [self = shared_from_this()] { self->resume(); });
        return yielded_ = true;
    } catch (const std::exception&) {
        return false;
    }
}

// Gives other peers time to receive the messages that this one has caused, before it causes more. Returns whether it
// has to wait.
bool Connection::pause() noexcept {
    if (forOthers_ < manyForOthers && paused_.count() == 0) return false;
    forOthers_ = 0;
    const auto more = channel_.pauseAfter(paused_, *this);
    paused_ = more.count() == 0 ? more : paused_ + more;
    if (more.count() == 0) return false;
    try {
        pauseTimer_.expires_after(more);
        pauseTimer_.async_wait([self = shared_from_this()](const boost::system::error_code&) { self->resume(); });
        return yielded_ = true;
    } catch (const std::exception&) { // out of memory
        return false;
    }
}

void Connection::resume() noexcept {
    yielded_ = false;
    if (!closed_) takeTurn();
}

void Connection::watchProgress() {
    arrived_ = 0;
    finished_ = false;
    timer_.expires_after(channel_.limits().unfinished / 2);
    timer_.async_wait([self = shared_from_this()](const boost::system::error_code& error) {
        if (!error && !self->closed_) self->orClose([&] { self->checkProgress(); });
    });
    watching_ = true;
}

// Runs twice within the limit. A message fails when there was too little progress both times: if this thread itself was
// delayed for longer than the limit, data that arrived meanwhile is read before the second time.
void Connection::checkProgress() {
    watching_ = false;
    const auto time = std::chrono::duration_cast<std::chrono::milliseconds>(channel_.limits().unfinished / 2);
    const std::size_t least = leastBytesPerSecond * static_cast<std::size_t>(time.count()) / 1000;
    const bool isSlow = incoming_.size() > 0 && !yielded_ && !finished_ && arrived_ <= least;
    if (isSlow && wasSlow_) {
        return reject(("peer did not finish a message within " + std::to_string(channel_.limits().unfinished.count()) +
                       " ms, " + std::to_string(incoming_.size()) + " bytes of it arrived")
                          .c_str());
    }
    wasSlow_ = isSlow;
    if (incoming_.size() > 0) watchProgress();
}

// handleHello and handleFrames return whether the connection continues.
bool Connection::handleHello() {
    const auto judgement = channel_.handshake.judge(incoming_.data(), incoming_.size());
    if (judgement.verdict == Handshake::Verdict::Refused) {
        reject(judgement.reason.c_str());
        return false;
    }
    if (judgement.verdict == Handshake::Verdict::Incomplete) return true;
    if (const char* why = channel_.fullReason()) {
        reject(why);
        return false;
    }
    timer_.cancel();
    helloReceived_ = true;
    swap_ = judgement.swap;
    incoming_.consume(judgement.size);
    if (helloSent_) becomeReady();
    return true;
}

bool Connection::handleFrames() {
    const auto begin = std::chrono::steady_clock::now();
    for (unsigned handled = 0; incoming_.size() >= frameHeaderBytes; ++handled) {
        char* header = incoming_.data();
        const std::uint32_t size = load32(header, swap_);
        if (size > maximumMessageBytes) {
            count(channel_.counters.undecodable);
            close(("peer announces a message of " + std::to_string(size) + " bytes").c_str(), true);
            return false;
        }
        if (incoming_.size() - frameHeaderBytes < size) break;
        if (channel_.isStopping()) return false;
        const bool isLong = handled > 0 && std::chrono::steady_clock::now() - begin >= longestTurn;
        if (((isLong || handled >= mostPerTurn) && yield()) || pause()) return false;
        lastHandled_ = begin;
        handleFrame(header, size, header + frameHeaderBytes);
        incoming_.consume(frameHeaderBytes + size);
        finished_ = true;
    }
    return true;
}

void Connection::handleFrame(const char* header, std::uint32_t size, char* body) {
    // Before it is validated, which changes it.
    recorder::recordMessage(swap_ ? EventFlags::otherOrder : std::uint8_t{0}, number_, channel_.service,
                            {header, frameHeaderBytes + size});
    const frame::MsgMeta meta{load32(header + 4, swap_), load32(header + 8, swap_), load32(header + 12, swap_),
                              static_cast<std::uint8_t>(header[16])};
    const frame::TransportInfo transport{number_, {load32(header + 20, swap_), load32(header + 24, swap_)}};
    const Handler* handler = channel_.findHandler(meta);
    if (!handler) {
        count(channel_.counters.undecodable);
        HOST_LOG(io, vdlDebugWarning, "service %s: connection %llu: no handler for message 0x%08x\n",
                 channel_.service.c_str(), static_cast<unsigned long long>(number_), meta.messageId);
        return;
    }
    if (size < handler->size) {
        count(channel_.counters.undecodable);
        HOST_LOG(io, vdlDebugFailure,
                 "service %s: connection %llu: message 0x%08x dropped: it has %u bytes, its form needs %zu\n",
                 channel_.service.c_str(), static_cast<unsigned long long>(number_), meta.messageId, size,
                 handler->size);
        return;
    }
    if (const char* fault = unmarshal(*handler->plan, body, size, swap_)) {
        count(channel_.counters.undecodable);
        HOST_LOG(io, vdlDebugFailure, "service %s: connection %llu: message 0x%08x dropped: %s\n",
                 channel_.service.c_str(), static_cast<unsigned long long>(number_), meta.messageId, fault);
        return;
    }
    count(channel_.counters.received);
    channel_.beginHandling(*this, meta.messageId);
    guardedCall([&] { handler->function(meta, transport, body, handler->context); },
                [&](const Thrown& thrown) {
                    HOST_LOG(io, vdlDebugFailure, "service %s: handler of message 0x%08x threw: %s\n",
                             channel_.service.c_str(), meta.messageId, thrown.what);
                });
    forOthers_ += channel_.endHandling();
}

void Connection::recordEnd(std::string_view reason) const noexcept {
    char text[256] = "closed: "; // allocates nothing, as memory may have run out
    constexpr std::size_t begin = 8;
    const auto size = reason.copy(text + begin, sizeof text - begin);
    recorder::record(EventKind::connection, number_, channel_.service, {text, begin + size});
}

void Connection::reject(const char* reason) noexcept {
    count(channel_.counters.refused);
    close(reason, true);
}

void Connection::close(const char* reason, bool fault) noexcept {
    if (closed_) return;
    const auto self = shared_from_this(); // the channel releases it
    const bool wasReady = channel_.abandon(*this);
    recordEnd(reason);
    channel_.onConnectionClosed(*this, wasReady, fault, reason);
}

void Connection::abandon() {
    channel_.assertMutexIsHeld();
    closed_ = true;
    ready_ = false;
    stream_->close();
    timer_.cancel();
    pauseTimer_.cancel();
}

} // namespace host::io
