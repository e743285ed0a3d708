#include "transport/service-socket.h"

#include "base/private-socket.h"

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <system_error>
#include <unistd.h>

namespace host::io {
namespace {

int newSocket() { return ::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0); }

sockaddr_un addressOf(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    return address;
}

[[noreturn]] void refuseInUse(const std::string& service, const std::string& path) {
    throw std::runtime_error("service " + service + " is already offered at " + path +
                             " by another process of this user: end that one (tvctl doctor says which it is), or set "
                             "RUNTIME_DIRECTORY to another folder for this one");
}

SocketLock lockFor(const std::string& service, const std::string& path) {
    try {
        return SocketLock("service " + service, path);
    } catch (const std::system_error& error) {
        if (error.code().value() == EADDRINUSE) refuseInUse(service, path);
        throw;
    }
}

// Removes what an earlier server left at path, which is locked; throws when it may not. A server that knows no lock
// may still be there.
void removeLeftover(const std::string& service, const std::string& path) {
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0) return; // bind says what is wrong, if anything is
    if (!S_ISSOCK(status.st_mode)) throw std::runtime_error("service " + service + ": " + path + " is no socket");
    const int probe = connectToEndpoint(path);
    if (probe >= 0) ::close(probe);
    if (probe >= 0 || probe == -EAGAIN) // EAGAIN: a server whose queue is full
        refuseInUse(service, path);
    if (::unlink(path.c_str()) != 0 && errno != ENOENT)
        throw std::runtime_error("service " + service + ": cannot replace " + path + ": " +
                                 std::system_category().message(errno));
}

} // namespace

int connectToEndpoint(const std::string& path) noexcept {
    const int socket = newSocket();
    if (socket < 0) return -errno;
    const auto address = addressOf(path);
    if (::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) return socket;
    const int error = errno;
    ::close(socket);
    return -error;
}

Endpoint::Endpoint(const std::string& service, const std::string& path)
    : path_(path), lock_(lockFor(service, path)), descriptor_(-1) {
    removeLeftover(service, path);
    descriptor_ = newSocket();
    const auto address = addressOf(path);
    struct stat status {};
    const int failed = descriptor_ < 0 ? -errno : bindPrivately(descriptor_, address);
    const bool bound = failed == 0;
    if (bound && lstat(path.c_str(), &status) == 0 && ::listen(descriptor_, SOMAXCONN) == 0) {
        device_ = status.st_dev;
        inode_ = status.st_ino;
        return;
    }
    const int error = bound ? errno : -failed;
    if (bound) ::unlink(path.c_str());
    if (descriptor_ >= 0) ::close(descriptor_);
    throw std::runtime_error("service " + service + ": cannot listen at " + path + ": " +
                             std::system_category().message(error));
}

Endpoint::~Endpoint() {
    struct stat status {};
    if (lstat(path_.c_str(), &status) == 0 && status.st_dev == device_ && status.st_ino == inode_)
        ::unlink(path_.c_str());
    ::close(descriptor_);
}

} // namespace host::io
