// The lock for creating, replacing and removing the socket at a path.
#pragma once

#include <string>

namespace host::io {

// An exclusive lock on "<path>.lock", released by the destructor, or by the system when the process dies. A server
// holds it from before it checks for a stale socket until its own socket is removed, so that only one of several
// servers that start at once finds the path free. The lock file (mode 0600) is never removed: otherwise two servers
// could hold locks on two files of that name.
class SocketLock {
public:
    // Throws std::system_error, which names the owner ("debug shell") and the path: EADDRINUSE when another process
    // holds the lock, else the error of opening the file.
    SocketLock(const std::string& owner, const std::string& path);
    ~SocketLock();
    SocketLock(const SocketLock&) = delete;
    SocketLock& operator=(const SocketLock&) = delete;

private:
    const int descriptor_;
};

} // namespace host::io
