#include "shell/shell-server.h"

#include "log/log.h"
#include "request.h"
#include "shell-socket.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <exception>
#include <string_view>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <system_error>
#include <utility>

namespace appovshell {

using host::io::FileDescriptor;

namespace {

// How long connecting clients wait when the process has no descriptor for them.
constexpr int acceptPauseMs = 200;

// Takes no memory.
void logError(std::uint32_t severity, const char* what, int error) noexcept {
    errno = error;
    HOST_LOG(shell, severity, "%s: %m\n", what);
}

bool isTemporary(int error) { return error == EAGAIN || error == EINTR; }

} // namespace

ShellServer::ShellServer(std::chrono::milliseconds answerTimeout) : answerTimeout_(answerTimeout) {
    host::nameModule(host::Module::shell, "shell");
}

ShellServer::~ShellServer() { stop(); }

void ShellServer::open(const std::string& path, uid_t user) {
    FileDescriptor wake(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!wake) throw std::system_error(errno, std::system_category(), "debug shell at " + path);
    auto lock = std::make_unique<host::io::SocketLock>("debug shell", path);
    path_ = path; // before there is something at it
    listener_ = listenAt(path);
    lock_ = std::move(lock);
    wake_ = std::move(wake);
    user_ = user;
}

void ShellServer::start() {
    if (!listener_) throw std::system_error(EBADF, std::system_category(), "debug shell without a socket");
    polled_.reserve(2 + maximumClients + maximumSilent);
    stopping_ = false;
    thread_ = std::thread(&ShellServer::serve, this);
}

void ShellServer::stop() {
    if (!listener_) return;
    stopping_ = true;
    const std::uint64_t one = 1;
    // A full counter wakes the thread just as well, so the result does not matter.
    [[maybe_unused]] const auto written = write(wake_.get(), &one, sizeof one);
    if (thread_.joinable()) thread_.join();
    clients_.clear();
    unlink(path_.c_str()); // this shell's own, as the path is still locked
    listener_.reset();
    wake_.reset();
    lock_.reset();
}

void ShellServer::serve() noexcept {
    while (!stopping_) {
        polled_.clear();
        polled_.push_back({wake_.get(), POLLIN, 0});
        polled_.push_back({acceptPaused_ ? -1 : listener_.get(), POLLIN, 0});
        bool requestsWait = false;
        for (const auto& client : clients_) {
            const bool waits = hasRequest(client); // in which case it is not heard before it had its turn
            requestsWait = requestsWait || waits;
            const int wanted = (client.ending || waits ? 0 : POLLIN) | (client.unsent.empty() ? 0 : POLLOUT);
            polled_.push_back({client.socket.get(), static_cast<short>(wanted), 0});
        }
        if (poll(polled_.data(), polled_.size(), requestsWait ? 0 : pollTimeout()) < 0) {
            if (errno == EINTR) continue;
            return logError(vdlDebugFailure, "the shell ends, its sockets cannot be watched", errno);
        }
        acceptPaused_ = false;
        auto events = polled_.begin() + 2;
        for (auto client = clients_.begin(); client != clients_.end() && !stopping_; ++client, ++events)
            takeTurn(*client, events->revents);
        // Afterwards, as one client's request may have evicted another one.
        std::erase_if(clients_,
                      [](const Client& client) { return client.lost || (client.ending && client.unsent.empty()); });
        if (polled_[1].revents != 0) accept();
    }
}

// A client's turn: at most one request, so that who asks for much at once does not keep the others waiting.
void ShellServer::takeTurn(Client& client, short events) noexcept {
    if (events & POLLOUT) flush(client);
    try {
        if (!client.ending && !hasRequest(client) && (events & (POLLIN | POLLHUP | POLLERR))) receive(client);
        if (hasRequest(client)) runRequest(client);
    } catch (const std::exception&) {
        giveUp(client);
    }
    // One that has stopped speaking and cannot be spoken to any more either.
    if (client.ending && (events & (POLLERR | POLLHUP))) client.lost = true;
}

int ShellServer::pollTimeout() const { return acceptPaused_ ? acceptPauseMs : -1; }

void ShellServer::accept() noexcept {
    FileDescriptor socket(accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!socket) {
        if (isTemporary(errno) || errno == ECONNABORTED) return;
        logError(vdlDebugWarning, "cannot take a shell client", errno);
        acceptPaused_ = true;
        return;
    }
    Client client;
    client.socket = std::move(socket);
    try {
        admit(client);
    } catch (const std::exception&) {
        giveUp(client);
    }
}

// Throws before it has taken the client.
void ShellServer::admit(Client& client) {
    ucred peer{};
    socklen_t size = sizeof peer;
    if (getsockopt(client.socket.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0 || peer.uid != user_) {
        HOST_LOG(shell, vdlDebugWarning, "rejected a shell client of user %u\n", peer.uid);
        return send(client, statusLine(-EACCES, "the shell serves its own user only"));
    }
    clients_.push_back(std::move(client));
    if (clients_.size() - askingClients() > maximumSilent) evictSilent();
}

// Clients that connect and never ask must not keep others from asking.
void ShellServer::evictSilent() noexcept {
    const auto silent =
        std::find_if(clients_.begin(), clients_.end(), [](const Client& known) { return !known.asked; });
    try {
        reject(*silent);
    } catch (const std::exception&) {
        giveUp(*silent);
    }
    clients_.erase(silent);
}

std::size_t ShellServer::askingClients() const {
    return static_cast<std::size_t>(std::count_if(clients_.begin(), clients_.end(),
                                                  [](const Client& client) { return client.asked && !client.lost; }));
}

// A whole one, or one that is too long already.
bool ShellServer::hasRequest(const Client& client) {
    return !client.ending && !client.lost &&
           (client.input.size() > maximumLine || client.input.find('\n') != std::string::npos);
}

// Nothing of it is under way: no request that has not run or arrives, no answer that it still reads. Who takes too long
// over either counts as idle.
bool ShellServer::isIdle(const Client& client, Clock::time_point now) const {
    if (!client.asked || client.ending || client.lost || hasRequest(client)) return false;
    if (!client.input.empty() && now - client.begun < answerTimeout_) return false;
    if (!client.unsent.empty() && now - client.active < answerTimeout_) return false;
    char byte;
    return recv(client.socket.get(), &byte, 1, MSG_PEEK | MSG_DONTWAIT) < 0 && isTemporary(errno);
}

// A slot for a client that asks: when all are taken, the one that has been idle the longest is evicted, else sixteen
// forgotten clients would lock everybody out. Returns false when none is idle.
bool ShellServer::takeSlot() {
    if (askingClients() < maximumClients) return true;
    const auto now = Clock::now();
    Client* longest = nullptr;
    for (Client& client : clients_)
        if ((!longest || client.active < longest->active) && isIdle(client, now)) longest = &client;
    if (!longest) return false;
    HOST_LOG(shell, vdlDebugWarning, "evicted the shell client that was idle the longest: there are %zu already\n",
             maximumClients);
    // It is not waited for: who does not read its answers does not read this either.
    if (longest->unsent.empty())
        send(*longest, statusLine(-EAGAIN, "the shell has its " + std::to_string(maximumClients) +
                                               " clients already, and this one was idle the longest"));
    longest->lost = true;
    return true;
}

void ShellServer::reject(Client& client) {
    HOST_LOG(shell, vdlDebugWarning, "rejected a shell client: there are %zu already\n", maximumClients);
    client.ending = true;
    send(client, statusLine(-EAGAIN, "the shell has its " + std::to_string(maximumClients) + " clients already"));
}

void ShellServer::receive(Client& client) {
    char buffer[16 * 1024];
    const auto count = recv(client.socket.get(), buffer, sizeof buffer, 0);
    if (count > 0) {
        if (client.input.empty()) client.begun = Clock::now();
        client.input.append(buffer, static_cast<std::size_t>(count));
    } else if (count == 0) {
        client.ending = true;
    } else if (!isTemporary(errno)) {
        client.lost = true;
    }
}

// Ends the connection to a client for want of memory, of which it is told unless part of an answer is on its way.
void ShellServer::giveUp(Client& client) noexcept {
    constexpr char text[] = "{\"status\":-12,\"error\":\"the shell is out of memory\"}\n";
    HOST_LOG(shell, vdlDebugWarning, "ended the connection to a shell client: out of memory\n");
    if (client.unsent.empty()) ::send(client.socket.get(), text, sizeof text - 1, MSG_NOSIGNAL | MSG_DONTWAIT);
    client.lost = true;
}

void ShellServer::runRequest(Client& client) {
    const auto length = std::min(client.input.find('\n'), client.input.size());
    if (length > maximumLine) {
        send(client, statusLine(-EINVAL, "malformed request: longer than " + std::to_string(maximumLine) + " bytes"));
        // Where the next request begins is not worth waiting for.
        client.ending = true;
        return client.input.clear();
    }
    Request request;
    std::string text = read(std::string_view(client.input).substr(0, length), request);
    if (text.empty()) { // what is no request must not take a slot
        if (!client.asked && !takeSlot()) {
            reject(client);
            return client.input.clear();
        }
        client.asked = true;
        text = execute(request);
        client.active = Clock::now();
    }
    client.input.erase(0, length + 1);
    client.begun = Clock::now();
    send(client, text);
}

void ShellServer::send(Client& client, const std::string& text) {
    // An answer to a client that has read all others may have any length, a command's output being limited.
    if (!client.unsent.empty() && client.unsent.size() + text.size() > maximumUnsent) {
        HOST_LOG(shell, vdlDebugWarning, "ended the connection to a shell client that does not read its answers\n");
        client.lost = true;
        return;
    }
    client.unsent += text;
    flush(client);
}

void ShellServer::flush(Client& client) noexcept {
    std::size_t sent = 0;
    while (sent < client.unsent.size()) {
        const auto count =
            ::send(client.socket.get(), client.unsent.data() + sent, client.unsent.size() - sent, MSG_NOSIGNAL);
        if (count >= 0) {
            sent += static_cast<std::size_t>(count);
        } else if (errno != EINTR) {
            client.lost = errno != EAGAIN;
            break;
        }
    }
    if (sent > 0) client.active = Clock::now();
    client.unsent.erase(0, sent);
}

} // namespace appovshell
