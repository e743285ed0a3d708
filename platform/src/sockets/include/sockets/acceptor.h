// Accepts connections at a listening socket: a few at a time, between which those that are there already are served.
#pragma once

#include "base/file-descriptor.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/steady_timer.hpp>
#include <functional>
#include <sys/socket.h>

namespace host::io {

// Who accepts. Called on the context's thread.
class AcceptorUser {
public:
    // Clients wait until what is missing is there again. Said once.
    virtual void onCannotAccept(const char* reason) noexcept = 0;
    // There is no memory to wait for clients with: listen has to be called again.
    virtual void onStalled(const char* reason) noexcept = 0;

protected:
    ~AcceptorUser() = default;
};

// Everything happens on the context's thread.
class Acceptor {
public:
    // Gets a connection, which does not block, and the peer's address; does not throw.
    using Take = std::function<void(FileDescriptor connection, const sockaddr_storage& from)>;

    // The socket, which does not block either, stays its owner's, who closes it after this has ended.
    Acceptor(boost::asio::io_context& io, int socket, Take take);
    ~Acceptor() { watch_.release(); }

    void listen(AcceptorUser& user) noexcept;

private:
    int acceptSome();

    const int socket_;
    const Take take_;
    boost::asio::steady_timer retryTimer_;
    int error_ = 0; // why no client could be accepted the last time
    // Last: were there no memory for what comes after it, it would close the socket, which is its owner's.
    boost::asio::posix::stream_descriptor watch_;
};

} // namespace host::io
