// The interface between the message queue and its transports: streams to peers, and connectors and listeners to get
// them. A transport does not know messages; hello, frames, queues and counters are above it and do not know sockets.
#pragma once

#include "sockets/acceptor.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <system_error>

namespace host::io {

// The user of a stream. Called on the receiving thread, never from inside a call of the stream.
class StreamUser {
public:
    virtual void onReceived(std::size_t count) = 0;
    // Everything has been received and nothing more will come: the peer has closed the connection, or the stream broke.
    virtual void onEnd(const std::string& reason) = 0;
    // The same, but this side ends the stream: the peer violated the transport's protocol, or there was no memory for
    // its data.
    virtual void onFault(const std::string& reason) = 0;
    virtual void onWritable() = 0;

protected:
    ~StreamUser() = default;
};

// Bytes from and to one peer. A pending operation keeps the user alive, and with it the user's stream; after close the
// user is not called any more. Nothing here blocks, and nothing allocates per message.
class Stream {
public:
    virtual ~Stream() = default;

    // Whether the peer is trusted: a process of this process's user, or a peer with an accepted key.
    virtual bool isOwn() const = 0;
    // Identifies the peer, for limits per peer and for the log: the same for all streams of one process, or of one key.
    virtual std::string peer() const = 0;

    // Waits for the next bytes, stores them at room and reports their number. One call at a time, on the receiving
    // thread.
    virtual void receive(char* room, std::size_t size, std::shared_ptr<StreamUser> user) = 0;

    // The following may be called from any thread, but one at a time.

    // Accepts as many of the bytes as it can at once. Returns their number; 0 when it can accept none now, or when the
    // stream is broken, in which case error is set. What it has not accepted must be sent again: the next call's bytes
    // begin with it, as a part of it may be encrypted and on its way already.
    virtual std::size_t send(const char* data, std::size_t size, std::error_code& error) noexcept = 0;
    // Calls onWritable once when bytes can be sent again. Breaks the stream if memory runs out.
    virtual void waitWritable(std::shared_ptr<StreamUser> user) noexcept = 0;
    // Breaks the stream; onEnd reports that to the user on the receiving thread.
    virtual void breakOff() noexcept = 0;
    // On the receiving thread, or after that has ended.
    virtual void close() noexcept = 0;
};

// Connects to a service of another process. Destroyed after the receiving thread has ended.
class Connector {
public:
    // Called with the stream, or with null and the reason. Must not throw.
    using Answer = std::function<void(std::unique_ptr<Stream> stream, const char* reason)>;

    virtual ~Connector() = default;
    virtual const std::string& address() const = 0; // for the log
    // Makes one attempt, with one answer on the receiving thread, possibly before this returns. Must not be called
    // while an attempt is pending.
    virtual void connect(const Answer& answer) = 0;
};

// The user of a listener: it offers a service. Called on the receiving thread.
class ListenerUser : public AcceptorUser {
public:
    virtual void onClient(std::unique_ptr<Stream> stream) noexcept = 0;
    // A client has authenticated itself; for the log.
    virtual void onAuthenticated(const char* who) noexcept = 0;
    // The transport rejected a client, or lost it because memory ran out.
    virtual void onRejected(const char* reason) noexcept = 0;

protected:
    ~ListenerUser() = default;
};

// Listens at the endpoint of a service of this process until it is destroyed, which happens after the receiving thread
// has ended.
class Listener {
public:
    virtual ~Listener() = default;
    // Starts reporting clients to the user, possibly before this returns. On the receiving thread.
    virtual void listen(ListenerUser& user) noexcept = 0;
};

} // namespace host::io
