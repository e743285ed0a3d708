#include "remote/common.h"

#include <array>
#include <cerrno>
#include <exception>
#include <poll.h>
#include <sys/socket.h>
#include <utility>

namespace host::remote {
namespace {

// Reads what nobody wants any more. Returns whether the peer may still be there.
bool discardInput(int socket) {
    std::array<char, 16 * 1024> bytes;
    const ssize_t count = ::recv(socket, bytes.data(), bytes.size(), MSG_DONTWAIT);
    return count > 0 || (count < 0 && (errno == EAGAIN || errno == EINTR));
}

} // namespace

void Farewell::add(io::FileDescriptor socket) noexcept {
    try {
        sockets_.push_back(std::move(socket));
    } catch (const std::exception&) { // no memory: it is closed at once
    }
}

void Farewell::wait(std::chrono::milliseconds most) noexcept {
    using Clock = std::chrono::steady_clock;
    const auto deadline = Clock::now() + most;
    while (!sockets_.empty()) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
        if (left <= 0) break;
        // One at a time: each is waited for in any case.
        pollfd last{sockets_.back().get(), POLLIN, 0};
        if (::poll(&last, 1, static_cast<int>(left)) > 0 && !discardInput(last.fd)) sockets_.pop_back();
    }
    sockets_.clear();
}

} // namespace host::remote
