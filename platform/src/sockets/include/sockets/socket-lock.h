// The right to make, replace and remove the socket at a path.
#pragma once

#include <string>

namespace host::io {

// An exclusive lock on "<path>.lock", given back with the object and by the system when the process dies. Who serves
// the path holds it from before looking for a left-over socket until its own is removed, so that of several servers
// that come at once only one finds the path free. The lock file (mode 0600) stays: were it removed, two servers could
// hold locks on two files of that name.
class SocketLock {
public:
    // Throws std::system_error, which names the owner ("debug shell") and the path: EADDRINUSE when somebody holds the
    // lock, else why the file cannot be had.
    SocketLock(const std::string& owner, const std::string& path);
    ~SocketLock();
    SocketLock(const SocketLock&) = delete;
    SocketLock& operator=(const SocketLock&) = delete;

private:
    const int descriptor_;
};

} // namespace host::io
