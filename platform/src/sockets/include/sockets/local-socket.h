// Stream sockets in the file system.
#pragma once

#include "base/file-descriptor.h"
#include "sockets/socket-lock.h"

#include <string>
#include <sys/socket.h>
#include <sys/types.h>

namespace host::io {

// A socket connected to what listens at the path, not blocking, or a negative errno.
int connectTo(const std::string& path) noexcept;

// The process at the other end; of user -1, which nobody is, when the system does not say.
ucred peerOf(int socket) noexcept;

// A listening socket of mode 0600, not blocking, or a negative errno. The caller has locked the path. A socket file
// that nobody serves any more is replaced; EADDRINUSE: somebody serves it, EEXIST: it is no socket.
int listenAt(const std::string& path) noexcept;

// Listens at a path, which is locked; the file goes with the object, unless somebody has replaced it.
class ListeningSocket {
public:
    // Throws std::system_error, which names the owner ("debug shell") and the path, as SocketLock and listenAt do.
    ListeningSocket(const std::string& owner, const std::string& path);
    ~ListeningSocket();
    ListeningSocket(const ListeningSocket&) = delete;
    ListeningSocket& operator=(const ListeningSocket&) = delete;

    int descriptor() const { return socket_.get(); }

private:
    const std::string path_;
    const SocketLock lock_; // outlasts the socket
    const FileDescriptor socket_;
    dev_t device_ = 0;
    ino_t inode_ = 0;
};

} // namespace host::io
