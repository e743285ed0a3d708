// Sockets in the file system that only this process's user can connect to.
#pragma once

#include <cerrno>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

namespace host::io {

// Binds a socket to a path that is free, with mode 0600. The mode is the socket's before it has a path, so that the
// file never exists with another one. Returns 0 or a negative errno.
inline int bindPrivately(int socket, const sockaddr_un& address) noexcept {
    if (::fchmod(socket, 0600) != 0) return -errno;
    return ::bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 ? 0 : -errno;
}

} // namespace host::io
