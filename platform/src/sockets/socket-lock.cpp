#include "sockets/socket-lock.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <system_error>
#include <unistd.h>

namespace host::io {

SocketLock::SocketLock(const std::string& owner, const std::string& path)
    : descriptor_(::open((path + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600)) {
    if (descriptor_ >= 0 && ::flock(descriptor_, LOCK_EX | LOCK_NB) == 0) return;
    const int error = errno;
    if (descriptor_ >= 0) ::close(descriptor_);
    if (error == EWOULDBLOCK) throw std::system_error(EADDRINUSE, std::system_category(), owner + " at " + path);
    throw std::system_error(error, std::system_category(), owner + ": cannot lock " + path + ".lock");
}

SocketLock::~SocketLock() { ::close(descriptor_); }

} // namespace host::io
