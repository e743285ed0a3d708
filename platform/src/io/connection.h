// One stream to a peer: hello, frames in, frames out of an outbox.
#pragma once

#include "io/door.h"
#include "io/receive-buffer.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/asio/steady_timer.hpp>
#include <cstdint>
#include <memory>
#include <string>

namespace host::io {

// Lives as long as the socket's operations do; after close it no longer touches the door.
class Connection : public std::enable_shared_from_this<Connection> {
public:
    // Takes over a connected socket, which does not block. Throws std::bad_alloc; the socket is then closed.
    Connection(boost::asio::io_context& io, int socket, Door& door, std::shared_ptr<Outbox> outbox);

    // On the receiving thread.
    void open();
    void close(const std::string& reason, bool fault);

    std::uint64_t number() const { return number_; } // in this process, from 1
    bool own() const;                                // whether the peer is a process of the same user

    // The rest only with the door's mutex held.
    bool ready() const { return ready_; } // both hellos are through
    Outbox& outbox() { return *outbox_; }
    // Writes what the socket takes at once; the receiving thread writes the rest when it can.
    void flush();
    // Ends the stream without a word to the door, on the receiving thread or when that has ended.
    void abandon();

private:
    void writeHello(std::size_t written);
    bool scheduleWait() noexcept;
    void waitWritable();
    void read();
    void received(std::size_t count);
    bool handleHello();
    bool handleFrames();
    void handleFrame(const char* header, std::uint32_t size, char* body);
    void becomeReady();
    void turnAway(const std::string& reason);

    Door& door_;
    boost::asio::local::stream_protocol::socket socket_;
    boost::asio::steady_timer helloTimer_;
    ReceiveBuffer incoming_;
    std::shared_ptr<Outbox> outbox_;
    const std::uint64_t number_;
    int descriptor_;
    bool closed_ = false;
    bool swap_ = false; // whether the peer's byte order differs
    bool helloSent_ = false, helloReceived_ = false;
    bool ready_ = false;
    bool waitingWritable_ = false;
};

} // namespace host::io
