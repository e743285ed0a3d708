// The socket on which a shell listens.
#pragma once

#include "base/file-descriptor.h"

#include <string>
#include <sys/un.h>

namespace appovshell {

// The address of a socket file. Throws std::runtime_error when the path is too long.
sockaddr_un addressOf(const std::string& path);

// Listens at path, for this user only (mode 0600); the caller has locked it. A socket file that nobody serves any more
// is replaced. Throws std::system_error, naming the path: EADDRINUSE when a process serves it, EEXIST when it is no
// socket.
host::io::FileDescriptor listenAt(const std::string& path);

} // namespace appovshell
