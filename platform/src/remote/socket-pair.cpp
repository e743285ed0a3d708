#include "remote/socket-pair.h"

#include <cerrno>
#include <sys/socket.h>
#include <system_error>

namespace host::remote {

std::pair<io::FileDescriptor, io::FileDescriptor> socketPair() {
    int ends[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends) != 0)
        throw std::system_error(errno, std::system_category(), "socketpair");
    return {io::FileDescriptor(ends[0]), io::FileDescriptor(ends[1])};
}

} // namespace host::remote
