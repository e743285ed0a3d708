// One stream to a peer: hello, frames in, frames out of an outbox.
#pragma once

#include "channel.h"
#include "receive-buffer.h"
#include "transport/transport.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <cstdint>
#include <memory>
#include <string>

namespace host::io {

// Lives as long as what is under way in its stream does; after close it no longer touches the channel.
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

    // Whether the peer has still to say its hello; on the receiving thread.
    bool awaitsHello() const { return !helloReceived_ && !closed_; }
    // Ends it because of what the peer said, or did not say; on the receiving thread.
    void reject(const char* reason) noexcept;

    std::uint64_t number() const { return number_; } // in this process, from 1

    // The rest is for the channel, with its mutex held.
    void setReady(); // both hellos are through
    bool ready() const {
        channel_.assertMutexIsHeld();
        return ready_;
    }
    Outbox& outbox() {
        channel_.assertMutexIsHeld();
        return *outbox_;
    }
    // Writes what the stream takes at once; the receiving thread writes the rest when it can.
    void flush();
    void flushOn(); // the stream takes more
    // Ends the stream without a word to the channel, on the receiving thread or when that has ended.
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
    void judgeProgress();
    template <class Step> void orClose(const Step& step) noexcept;
    bool handleHello();
    bool handleFrames();
    void handleFrame(const char* header, std::uint32_t size, char* body);
    void becomeReady();

    Channel& channel_;
    const std::unique_ptr<Stream> stream_;
    boost::asio::steady_timer timer_;      // for the hello, then for messages under way
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
    // Of the time since progress was last judged; see judgeProgress.
    std::size_t arrived_ = 0; // bytes
    bool finished_ = false;   // whether a message came to its end
    bool wasSlow_ = false;    // the time before
    bool watching_ = false;   // whether the timer runs for messages
    bool yielded_ = false;    // whether the next turn is still to come
    unsigned forOthers_ = 0;  // messages that what it said has led to, since the last look at how others keep pace
};

} // namespace host::io
