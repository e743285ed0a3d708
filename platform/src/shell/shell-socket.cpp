#include "shell-socket.h"

#include "base/private-socket.h"

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/stat.h>
#include <system_error>

namespace appovshell {

using host::io::FileDescriptor;

namespace {

[[noreturn]] void fail(int error, const std::string& path) {
    throw std::system_error(error, std::system_category(), "debug shell at " + path);
}

FileDescriptor makeSocket(const std::string& path) {
    FileDescriptor made(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!made) fail(errno, path);
    return made;
}

// Removes the socket file that a process left when it ended without stopping its shell.
void removeStale(const std::string& path, const sockaddr_un& address) {
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0) {
        if (errno == ENOENT) return;
        fail(errno, path);
    }
    if (!S_ISSOCK(status.st_mode)) fail(EEXIST, path);
    const auto probe = makeSocket(path);
    // A full backlog (EAGAIN) is a sign of life too.
    if (connect(probe.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 || errno == EAGAIN)
        fail(EADDRINUSE, path);
    if (errno != ECONNREFUSED) fail(errno, path);
    if (unlink(path.c_str()) != 0 && errno != ENOENT) fail(errno, path);
}

} // namespace

sockaddr_un addressOf(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) throw std::runtime_error("socket path too long: " + path);
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    return address;
}

FileDescriptor listenAt(const std::string& path) {
    const auto address = addressOf(path);
    removeStale(path, address);
    auto listener = makeSocket(path);
    if (const int failed = host::io::bindPrivately(listener.get(), address); failed != 0) fail(-failed, path);
    if (listen(listener.get(), SOMAXCONN) != 0) {
        const int error = errno;
        unlink(path.c_str());
        fail(error, path);
    }
    return listener;
}

} // namespace appovshell
