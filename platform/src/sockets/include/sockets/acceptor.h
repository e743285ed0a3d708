// Accepts connections at a listening socket, a few at a time; in between, existing connections are served.
#pragma once

#include "base/file-descriptor.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/steady_timer.hpp>
#include <functional>
#include <sys/socket.h>

namespace host::io {

// The user of an acceptor. Called on the context's thread.
class AcceptorUser {
public:
    // Clients wait until the missing resource is available again. Called once per error.
    virtual void onCannotAccept(const char* reason) noexcept = 0;
    // There is no memory to wait for clients: listen must be called again.
    virtual void onStalled(const char* reason) noexcept = 0;

protected:
    ~AcceptorUser() = default;
};

// Everything runs on the context's thread.
class Acceptor {
public:
    // Gets a non-blocking connection and the peer's address. Must not throw.
    using Take = std::function<void(FileDescriptor connection, const sockaddr_storage& from)>;

    // The caller owns the socket, which must be non-blocking, and closes it after destroying the acceptor.
    Acceptor(boost::asio::io_context& io, int socket, Take take);
    ~Acceptor() { watch_.release(); }

    void listen(AcceptorUser& user) noexcept;

private:
    int acceptSome();

    const int socket_;
    const Take take_;
    boost::asio::steady_timer retryTimer_;
    int error_ = 0; // why the last attempt could accept no client
    // The last member: if a member after it failed to allocate, this would close the socket, which belongs to the
    // owner.
    boost::asio::posix::stream_descriptor watch_;
};

} // namespace host::io
