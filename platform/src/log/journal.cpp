#include "journal.h"

#include <vdl/debug.h>

#include <cstdlib>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <utility>

namespace host::debug {
namespace {

// syslog's numbers, which the journal uses.
const char* priorityOf(std::uint32_t severity) {
    if (severity <= vdlDebugFailure) return "3";
    if (severity <= vdlDebugWarning) return "4";
    if (severity <= vdlDebugProgress) return "6";
    return "7";
}

// With the length in front of the value, which may contain line feeds.
void add(std::string& datagram, std::string_view field, std::string_view value) {
    datagram.append(field) += '\n';
    for (std::uint64_t rest = value.size(), i = 0; i < sizeof rest; ++i, rest >>= 8)
        datagram += static_cast<char>(rest & 0xFF);
    datagram.append(value) += '\n';
}

} // namespace

std::optional<Journal> Journal::ofStandardError(const std::string& socketPath) {
    const char* const stream = std::getenv("JOURNAL_STREAM");
    struct stat standardError {};
    if (stream == nullptr || fstat(STDERR_FILENO, &standardError) != 0 ||
        stream != std::to_string(standardError.st_dev) + ':' + std::to_string(standardError.st_ino))
        return std::nullopt;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (socketPath.size() >= sizeof address.sun_path) return std::nullopt;
    socketPath.copy(address.sun_path, socketPath.size());
    io::FileDescriptor socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!socket || connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        return std::nullopt;
    return Journal(std::move(socket));
}

bool Journal::write(const Line& line) const {
    std::string datagram;
    add(datagram, "MESSAGE", line.text);
    add(datagram, "PRIORITY", priorityOf(line.severity));
    add(datagram, "SYSLOG_IDENTIFIER", line.process);
    add(datagram, "TVSA_MODULE", line.module);
    add(datagram, "TVSA_LEVEL", line.level);
    return send(socket_.get(), datagram.data(), datagram.size(), MSG_NOSIGNAL) >= 0;
}

} // namespace host::debug
