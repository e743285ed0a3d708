// What the message queue needs of whatever carries its bytes: streams to peers, and two ways to come by them. A
// transport knows no messages; hello, frames, queues and counters are above it and know no socket.
#pragma once

#include "sockets/acceptor.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <system_error>

namespace host::io {

// Who uses a stream. Called on the receiving thread, never from inside a call of the stream's.
class StreamUser {
public:
    virtual void onReceived(std::size_t count) = 0;
    // There is nothing more to receive, everything before it having been received: the peer has gone, or the stream
    // broke.
    virtual void onEnd(const std::string& reason) = 0;
    // The same, but it is this side that ends it: the peer broke the transport's rules, or there was no memory for what
    // it sent.
    virtual void onFault(const std::string& reason) = 0;
    virtual void onWritable() = 0;

protected:
    ~StreamUser() = default;
};

// Bytes from and to one peer. What is under way keeps the user, and with it the user's stream, in existence; after
// close the user hears nothing more. Nothing here blocks, and nothing allocates per message.
class Stream {
public:
    virtual ~Stream() = default;

    // Whether the peer may be spoken to: a process of this process's user, or one that has proven its key.
    virtual bool isOwn() const = 0;
    // Who is at the other end, for bounds that hold per peer and for the log: all streams of one process, or of one
    // key, say the same.
    virtual std::string peer() const = 0;

    // Waits for the next bytes, puts them at room, and tells how many they are. One at a time, on the receiving thread.
    virtual void receive(char* room, std::size_t size, std::shared_ptr<StreamUser> user) = 0;

    // The rest from any thread, but one at a time.

    // Takes as many of the bytes as there is room for at once. Returns how many; none when there is no room now, or
    // when the stream is broken, which error then says.
    virtual std::size_t send(const char* data, std::size_t size, std::error_code& error) noexcept = 0;
    // Tells, once, when there is room again. Without memory for that the stream is broken.
    virtual void waitWritable(std::shared_ptr<StreamUser> user) noexcept = 0;
    // Breaks the stream, of which the user hears on the receiving thread, as onEnd.
    virtual void breakOff() noexcept = 0;
    // On the receiving thread, or when that has ended.
    virtual void close() noexcept = 0;
};

// The way to a service of another process. Ends when the receiving thread has ended.
class Connector {
public:
    // Called with the stream, or with null and the reason. Does not throw.
    using Answer = std::function<void(std::unique_ptr<Stream> stream, const char* reason)>;

    virtual ~Connector() = default;
    virtual const std::string& address() const = 0; // for the log
    // One attempt, with one answer on the receiving thread, perhaps before this returns. Not while another is under
    // way.
    virtual void connect(const Answer& answer) = 0;
};

// Who offers a service. Called on the receiving thread.
class ListenerUser : public AcceptorUser {
public:
    virtual void onClient(std::unique_ptr<Stream> stream) noexcept = 0;
    // A client has proven who it is: for the log.
    virtual void onProven(const char* who) noexcept = 0;
    // The transport rejected a client, or lost it because memory ran out.
    virtual void onRejected(const char* reason) noexcept = 0;

protected:
    ~ListenerUser() = default;
};

// The place where this process offers a service; given up with the object, which ends when the receiving thread has.
class Listener {
public:
    virtual ~Listener() = default;
    // From now on the user has clients, perhaps before this returns. On the receiving thread.
    virtual void listen(ListenerUser& user) noexcept = 0;
};

} // namespace host::io
