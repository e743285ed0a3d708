#include "sockets/local-socket.h"

#include <cerrno>
#include <sys/stat.h>
#include <sys/un.h>
#include <system_error>
#include <unistd.h>

namespace host::io {
namespace {

using Call = int (*)(int, const sockaddr*, socklen_t);

// Creates a socket and connects or binds it; a negative errno on failure.
int newSocket(const std::string& path, Call call) noexcept {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) return -ENAMETOOLONG;
    path.copy(address.sun_path, path.size());
    FileDescriptor made(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (!made || call(made.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) return -errno;
    return made.release();
}

// Sets the mode before binding, so that the file never exists with another mode.
int bindPrivately(int socket, const sockaddr* address, socklen_t size) noexcept {
    return ::fchmod(socket, 0600) == 0 ? ::bind(socket, address, size) : -1;
}

// Removes a stale socket from the path. Returns 0 or a negative errno.
int removeLeftover(const std::string& path) noexcept {
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0) return errno == ENOENT ? 0 : -errno;
    if (!S_ISSOCK(status.st_mode)) return -EEXIST;
    const int probe = connectTo(path);
    if (probe >= 0) ::close(probe);
    if (probe >= 0 || probe == -EAGAIN) return -EADDRINUSE; // EAGAIN: a server whose queue is full
    if (probe != -ECONNREFUSED) return probe;
    return ::unlink(path.c_str()) == 0 || errno == ENOENT ? 0 : -errno;
}

} // namespace

int connectTo(const std::string& path) noexcept { return newSocket(path, ::connect); }

ucred peerOf(int socket) noexcept {
    ucred peer{};
    socklen_t size = sizeof peer;
    if (::getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) peer.uid = static_cast<uid_t>(-1);
    return peer;
}

int listenAt(const std::string& path) noexcept {
    if (const int failed = removeLeftover(path); failed != 0) return failed;
    const int listener = newSocket(path, bindPrivately);
    if (listener < 0 || ::listen(listener, SOMAXCONN) == 0) return listener;
    const int error = errno;
    ::unlink(path.c_str());
    ::close(listener);
    return -error;
}

ListeningSocket::ListeningSocket(const std::string& owner, const std::string& path)
    : path_(path), lock_(owner, path), socket_(listenAt(path)) {
    if (!socket_) throw std::system_error(-socket_.get(), std::system_category(), owner + " at " + path);
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0) return;
    device_ = status.st_dev;
    inode_ = status.st_ino;
}

ListeningSocket::~ListeningSocket() {
    struct stat status {};
    if (::lstat(path_.c_str(), &status) == 0 && status.st_dev == device_ && status.st_ino == inode_)
        ::unlink(path_.c_str());
}

} // namespace host::io
