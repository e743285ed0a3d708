#include "transport/local-transport.h"

#include "base/error-text.h"
#include "transport/notify-writable.h"

#include <boost/asio/buffer.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <cerrno>
#include <exception>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace host::io {
namespace {

// The system's text, or, if memory runs out, one that is short enough to need no allocation.
std::string textOf(const boost::system::error_code& error) {
    try {
        return error.message();
    } catch (const std::exception&) {
        return "errno " + std::to_string(error.value());
    }
}

class LocalStream final : public Stream {
public:
    explicit LocalStream(boost::asio::io_context& io) : socket_(io) {}

    // Takes over a connected non-blocking socket, unless it throws boost::system::system_error.
    void takeOver(int socket) { socket_.assign(boost::asio::local::stream_protocol(), descriptor_ = socket); }

    bool isOwn() const override { return peerOf(descriptor_).uid == geteuid(); }

    std::string peer() const override { return "process " + std::to_string(peerOf(descriptor_).pid); }

    void receive(char* room, std::size_t size, std::shared_ptr<StreamUser> user) override {
        socket_.async_read_some(
            boost::asio::buffer(room, size),
            [this, user = std::move(user)](const boost::system::error_code& error, std::size_t count) {
                if (!socket_.is_open()) return;
                if (error) return user->onEnd(textOf(error));
                user->onReceived(count);
            });
    }

    std::size_t send(const char* data, std::size_t size, std::error_code& error) noexcept override {
        for (;;) {
            const ssize_t taken = ::send(descriptor_, data, size, MSG_DONTWAIT | MSG_NOSIGNAL);
            if (taken >= 0) return static_cast<std::size_t>(taken);
            if (errno == EINTR) continue;
            // The system, not only the socket, may be temporarily out of buffers.
            if (errno != EAGAIN && errno != ENOBUFS && errno != ENOMEM) error.assign(errno, std::system_category());
            return 0;
        }
    }

    void waitWritable(std::shared_ptr<StreamUser> user) noexcept override {
        notifyWhenWritable(socket_, *this, std::move(user));
    }

    void breakOff() noexcept override { ::shutdown(descriptor_, SHUT_RDWR); }

    void close() noexcept override {
        descriptor_ = -1;
        boost::system::error_code ignored;
        socket_.close(ignored);
    }

private:
    boost::asio::local::stream_protocol::socket socket_;
    int descriptor_ = -1; // the socket's; a copy, because only the receiving thread uses the socket object
};

ListeningSocket listeningFor(const std::string& service, const std::string& path) {
    try {
        return ListeningSocket("service " + service, path);
    } catch (const std::system_error& error) {
        if (error.code().value() != EADDRINUSE) throw;
        throw std::runtime_error("service " + service + " is already offered at " + path +
                                 " by another process of this user: end that process (tvctl doctor names it), or "
                                 "set RUNTIME_DIRECTORY to another folder for this one");
    }
}

} // namespace

std::unique_ptr<Stream> streamOver(boost::asio::io_context& io, FileDescriptor socket) {
    auto stream = std::make_unique<LocalStream>(io);
    stream->takeOver(socket.get());
    (void)socket.release();
    return stream;
}

void LocalConnector::connect(const Answer& answer) {
    const int socket = connectTo(path_);
    if (socket < 0) return answer(nullptr, std::system_category().message(-socket).c_str());
    std::unique_ptr<Stream> stream;
    try {
        stream = streamOver(io_, FileDescriptor(socket));
    } catch (const std::exception& error) {
        return answer(nullptr, host::textOf(error));
    }
    answer(std::move(stream), nullptr);
}

LocalListener::LocalListener(boost::asio::io_context& io, const std::string& service, const std::string& path)
    : io_(io),
      socket_(listeningFor(service, path)),
      acceptor_(io, socket_.descriptor(),
                [this](FileDescriptor connection, const sockaddr_storage&) { take(std::move(connection)); }) {}

void LocalListener::listen(ListenerUser& user) noexcept {
    user_ = &user;
    acceptor_.listen(user);
}

void LocalListener::take(FileDescriptor connection) noexcept {
    std::unique_ptr<Stream> stream;
    try {
        stream = streamOver(io_, std::move(connection));
    } catch (const std::exception& error) {
        return user_->onRejected(host::textOf(error));
    }
    user_->onClient(std::move(stream));
}

} // namespace host::io
