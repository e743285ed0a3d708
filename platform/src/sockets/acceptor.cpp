#include "sockets/acceptor.h"

#include "base/error-text.h"

#include <cerrno>
#include <chrono>
#include <exception>
#include <system_error>
#include <utility>

namespace host::io {
namespace {
// How long to wait for descriptors or memory before the next attempt.
constexpr std::chrono::milliseconds acceptRetry{100};
constexpr int mostAtOnce = 16;
} // namespace

Acceptor::Acceptor(boost::asio::io_context& io, int socket, Take take)
    : socket_(socket), take_(std::move(take)), retryTimer_(io), watch_(io, socket) {}

void Acceptor::listen(AcceptorUser& user) noexcept {
    try {
        const int before = std::exchange(error_, acceptSome());
        const auto again = [this, &user](const boost::system::error_code& canceled) {
            if (!canceled) listen(user);
        };
        if (error_ == 0) return watch_.async_wait(watch_.wait_read, again);
        if (error_ != before) user.onCannotAccept(std::system_category().message(error_).c_str());
        retryTimer_.expires_after(acceptRetry);
        retryTimer_.async_wait(again);
    } catch (const std::exception& error) {
        user.onStalled(textOf(error));
    }
}

// Returns 0, or the error that kept further clients from being accepted.
int Acceptor::acceptSome() {
    for (int i = 0; i < mostAtOnce; ++i) {
        sockaddr_storage from{};
        socklen_t size = sizeof from;
        FileDescriptor connection(
            ::accept4(socket_, reinterpret_cast<sockaddr*>(&from), &size, SOCK_NONBLOCK | SOCK_CLOEXEC));
        if (connection)
            take_(std::move(connection), from);
        else if (errno == EAGAIN)
            return 0;
        else if (errno != EINTR && errno != ECONNABORTED)
            return errno;
    }
    return 0;
}

} // namespace host::io
