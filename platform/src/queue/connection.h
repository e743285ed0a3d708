// One connection to a peer over a stream: exchanges hellos, receives frames, and sends the frames of an outbox.
#pragma once

#include "channel.h"
#include "receive-buffer.h"
#include "transport/transport.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace host::io {

// Lives until the pending operations of its stream have ended; does not use the channel after close.
class Connection final : public StreamUser, public std::enable_shared_from_this<Connection> {
public:
    // Throws std::bad_alloc.
    Connection(boost::asio::io_context& io, std::unique_ptr<Stream> stream, Channel& channel,
               std::shared_ptr<Outbox> outbox);

    // On the receiving thread.
    void open() noexcept;
    void close(const char* reason, bool fault) noexcept;
    void onReceived(std::size_t count) override;
    void onEnd(const std::string& reason) override;
    void onFault(const std::string& reason) override;
    void onWritable() override;

    // Whether the peer has not sent its hello yet; on the receiving thread.
    bool awaitsHello() const { return !helloReceived_ && !closed_; }
    // When a message of the peer was last handled; on the receiving thread.
    std::chrono::steady_clock::time_point lastHandled() const { return lastHandled_; }
    // Closes it because of what the peer sent or failed to send; on the receiving thread.
    void reject(const char* reason) noexcept;

    std::uint64_t number() const { return number_; } // in this process, from 1

    // The following is for the channel, with its mutex held.
    void setReady(); // both hellos have been exchanged
    bool ready() const {
        channel_.assertMutexIsHeld();
        return ready_;
    }
    Outbox& outbox() {
        channel_.assertMutexIsHeld();
        return *outbox_;
    }
    // Until when the stream accepted bytes, if it did not accept all. It accepts more when the peer has received some.
    std::chrono::steady_clock::time_point lastWritable() const {
        channel_.assertMutexIsHeld();
        return lastWritable_;
    }
    // Writes as much as the stream accepts; the receiving thread writes the rest later.
    void flush();
    void resumeFlush(); // the stream is writable again
    // Closes the stream without notifying the channel, on the receiving thread or after that has ended.
    void abandon();

private:
    void writeHello();
    void read();
    void takeTurn() noexcept;
    bool yield() noexcept;
    bool pause() noexcept;
    void resume() noexcept;
    std::size_t frameBegun();
    void watchProgress();
    void checkProgress();
    template <class Step> void orClose(const Step& step) noexcept;
    bool handleHello();
    bool handleFrames();
    void handleFrame(const char* header, std::uint32_t size, char* body);
    void becomeReady();
    void recordEnd(std::string_view reason) const noexcept;

    Channel& channel_;
    const std::unique_ptr<Stream> stream_;
    boost::asio::steady_timer timer_;      // for the hello, then for partly received messages
    boost::asio::steady_timer pauseTimer_; // see pause
    ReceiveBuffer incoming_;
    const std::shared_ptr<Outbox> outbox_ TVSA_GUARDED_BY(channel_.mutex_);
    const std::uint64_t number_;
    std::size_t helloWritten_ = 0;
    bool closed_ = false;
    bool swap_ = false; // whether the peer's byte order differs
    bool helloSent_ = false, helloReceived_ = false;
    bool ready_ TVSA_GUARDED_BY(channel_.mutex_) = false;
    bool waitingWritable_ TVSA_GUARDED_BY(channel_.mutex_) = false;
    // Since the last call of checkProgress:
    std::size_t arrived_ = 0;             // bytes
    bool finished_ = false;               // whether a message was completed
    bool wasSlow_ = false;                // whether progress was too slow at the call before
    bool watching_ = false;               // whether the timer runs for a partly received message
    bool yielded_ = false;                // whether the next turn is scheduled
    unsigned forOthers_ = 0;              // messages to others that this peer has caused since the last check in pause
    std::chrono::milliseconds paused_{0}; // of the present pause
    std::chrono::steady_clock::time_point lastHandled_;
    std::chrono::steady_clock::time_point lastWritable_ TVSA_GUARDED_BY(channel_.mutex_);
};

} // namespace host::io
