#include "files.h"

#include <cerrno>
#include <cstdio>
#include <sys/socket.h>
#include <sys/un.h>
#include <system_error>
#include <unistd.h>

namespace tvctl::doctor {
namespace {

std::string userText(uid_t user) { return "user " + std::to_string(user); }

// Connects without blocking and sends nothing. Returns the socket, or a negative error number.
int connectTo(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) return -ENAMETOOLONG;
    path.copy(address.sun_path, path.size());
    const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (socket < 0) return -errno;
    if (::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) return socket;
    const int error = errno;
    ::close(socket);
    return -error;
}

// Nobody listens: its process has ended, or the process that holds its lock is starting or stopping.
void checkStaleSocket(Diagnosis& diagnosis, const std::string& subject, const std::string& path) {
    int error = 0;
    const std::string lock = path + ".lock";
    const auto status = stateOf(lock, error);
    if (const auto holder = status ? holderOfLock(lock, *status) : std::nullopt)
        diagnosis.warn(subject, "the process that serves " + path + " is starting or stopping: " + *holder,
                       "wait a moment");
    else
        diagnosis.wrong(subject, path + " is stale: its process ended without removing it",
                        "start the process, which replaces it, or remove it");
}

} // namespace

std::string modeText(mode_t mode) {
    char text[16];
    std::snprintf(text, sizeof text, "%04o", static_cast<unsigned>(mode & 07777));
    return text;
}

std::string textOfError(int error) { return std::system_category().message(error); }

std::optional<struct stat> stateOf(const std::string& path, int& error) {
    struct stat status {};
    error = ::lstat(path.c_str(), &status) == 0 ? 0 : errno;
    if (error == 0) return status;
    if (error == ENOENT || error == ENOTDIR) error = 0;
    return std::nullopt;
}

bool checkOwn(Diagnosis& diagnosis, const std::string& path, const struct stat& status, mode_t allowed) {
    const bool own = status.st_uid == geteuid();
    const bool closed = (status.st_mode & 07777 & ~allowed) == 0;
    if (!own)
        diagnosis.wrong(path, "belongs to " + userText(status.st_uid), "find out why, then let its owner remove it");
    if (!closed)
        diagnosis.wrong(path, "open to other users: mode " + modeText(status.st_mode),
                        "chmod " + modeText(allowed) + ", and find out who opened it");
    return own && closed;
}

SocketState examineSocket(const std::string& path) {
    SocketState state;
    const auto status = stateOf(path, state.error);
    if (!status) {
        if (state.error != 0) state.kind = SocketState::Kind::unreachable;
        return state;
    }
    state.status = *status;
    state.kind = SocketState::Kind::noSocket;
    if (!S_ISSOCK(status->st_mode)) return state;
    const int socket = connectTo(path);
    if (socket == -ENOENT) {
        state.kind = SocketState::Kind::missing; // removed meanwhile
    } else if (socket == -ECONNREFUSED) {
        state.kind = SocketState::Kind::stale;
    } else if (socket < 0 && socket != -EAGAIN) {
        state.kind = SocketState::Kind::unreachable;
        state.error = -socket;
    } else {
        state.kind = SocketState::Kind::served;
        state.user = status->st_uid;
        ucred peer{};
        socklen_t size = sizeof peer;
        if (socket >= 0 && getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0) {
            state.process = peer.pid;
            state.user = peer.uid;
        }
    }
    if (socket >= 0) ::close(socket);
    return state;
}

bool checkSocket(Diagnosis& diagnosis, const std::string& subject, const std::string& path, const SocketState& state) {
    using Kind = SocketState::Kind;
    switch (state.kind) {
        case Kind::missing:
            return false;
        case Kind::unreachable:
            diagnosis.wrong(subject, path + " cannot be reached: " + textOfError(state.error), "fix its folder");
            return false;
        case Kind::noSocket:
            diagnosis.wrong(subject, path + " is not a socket", "remove it: no process can serve at this path");
            return false;
        case Kind::stale:
        case Kind::served:
            break;
    }
    (void)checkOwn(diagnosis, path, state.status, 0600);
    if (state.kind == Kind::stale) {
        checkStaleSocket(diagnosis, subject, path);
        return false;
    }
    if (state.user == geteuid()) return true;
    diagnosis.wrong(subject,
                    path + " is served by process " + std::to_string(state.process) + " of " + userText(state.user),
                    "name another address in endpoints, or another folder in RUNTIME_DIRECTORY");
    return false;
}

EntryPoint entryPointOf(const std::string& path, const SocketState& state) {
    std::string who = "-", how;
    switch (state.kind) {
        case SocketState::Kind::missing:
            how = "nobody serves it";
            break;
        case SocketState::Kind::noSocket:
            how = "not a socket";
            break;
        case SocketState::Kind::stale:
            how = "stale";
            break;
        case SocketState::Kind::unreachable:
            how = textOfError(state.error);
            break;
        case SocketState::Kind::served:
            who = userText(state.user) + " only";
            how = "served by process " + std::to_string(state.process);
            if (state.process == 0) how = "served by a process that is busy";
            break;
    }
    return {path, who, how};
}

} // namespace tvctl::doctor
