// Unix stream sockets.
#pragma once

#include "base/file-descriptor.h"
#include "sockets/socket-lock.h"

#include <string>
#include <sys/socket.h>
#include <sys/types.h>

namespace host::io {

// A non-blocking socket connected to the listener at path, or a negative errno.
int connectTo(const std::string& path) noexcept;

// The process at the other end; its uid is -1, which no user has, when the system does not report it.
ucred peerOf(int socket) noexcept;

// A non-blocking listening socket of mode 0600, or a negative errno. The caller has locked the path. A stale socket
// file is replaced. EADDRINUSE: another process serves the path; EEXIST: it is not a socket.
int listenAt(const std::string& path) noexcept;

// Locks a path and listens there. The destructor removes the file, unless another process has replaced it.
class ListeningSocket {
public:
    // Throws std::system_error, which names the owner ("debug shell") and the path, like SocketLock and listenAt.
    ListeningSocket(const std::string& owner, const std::string& path);
    ~ListeningSocket();
    ListeningSocket(const ListeningSocket&) = delete;
    ListeningSocket& operator=(const ListeningSocket&) = delete;

    int descriptor() const { return socket_.get(); }

private:
    const std::string path_;
    const SocketLock lock_; // outlives the socket
    const FileDescriptor socket_;
    dev_t device_ = 0;
    ino_t inode_ = 0;
};

} // namespace host::io
