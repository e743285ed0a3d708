// Sockets of services in the file system.
#pragma once

#include "base/socket-lock.h"

#include <string>
#include <sys/types.h>

namespace host::io {

// A stream socket connected to the endpoint, not blocking, or a negative errno.
int connectToEndpoint(const std::string& path) noexcept;

// A listening socket of mode 0600 at a path, which is locked; the file goes with the object, unless somebody has
// replaced it.
class Endpoint {
public:
    // Throws std::runtime_error when somebody serves the path or it cannot be had.
    Endpoint(const std::string& service, const std::string& path);
    ~Endpoint();
    Endpoint(const Endpoint&) = delete;
    Endpoint& operator=(const Endpoint&) = delete;

    int descriptor() const { return descriptor_; } // which does not block

private:
    const std::string path_;
    const SocketLock lock_; // outlasts the socket
    int descriptor_;
    dev_t device_ = 0;
    ino_t inode_ = 0;
};

} // namespace host::io
