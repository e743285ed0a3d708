#include "client.h"

#include <host/message-queue.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace soak {
namespace {

constexpr int queueFull = -11;

[[noreturn]] void fail(const std::string& what) { throw std::system_error(errno, std::generic_category(), what); }

// Receives a service's hello. The client's own hello has the same bytes.
std::string receiveHello(int socket) {
    constexpr std::size_t sizeAt = 12;
    std::string hello(sizeAt + sizeof(std::uint32_t), '\0');
    if (recv(socket, hello.data(), hello.size(), MSG_WAITALL) != static_cast<ssize_t>(hello.size())) fail("no hello");
    std::uint32_t size = 0;
    std::memcpy(&size, hello.data() + sizeAt, sizeof size);
    const std::size_t received = hello.size();
    hello.resize(size);
    if (recv(socket, hello.data() + received, size - received, MSG_WAITALL) != static_cast<ssize_t>(size - received))
        fail("incomplete hello");
    return hello;
}

} // namespace

QueueClient::QueueClient(host::MessageQueue& queue)
    : channel_(queue.connectTo(service, messages(), 16 * 1024, nullptr)), text_(static_cast<char*>(vdlFlatAlloc(64))) {
    queue.open(channel_);
}

QueueClient::~QueueClient() { vdlFlatFree(text_); }

void QueueClient::send(std::uint64_t count, const std::stop_token& stop) {
    for (std::uint64_t i = 0; i < count && !stop.stop_requested();) {
        const std::uint32_t number = sent_;
        const std::size_t length = lengthOf(number);
        std::fill_n(text_, length, letterOf(number));
        text_[length] = '\0';
        const Numbered message{queueClient, number, {static_cast<std::uint32_t>(length), text_}};
        const int result = channel_.asyncSend({}, numbered().meta, nullptr, *numbered().table, &message, [] {});
        if (result == 0) {
            ++sent_;
            ++i;
        } else if (result == queueFull) {
            std::this_thread::sleep_for(std::chrono::microseconds(100));
        } else {
            throw std::system_error(-result, std::generic_category(), "a message was refused");
        }
    }
}

RawClient::RawClient(std::string path)
    : path_(std::move(path)), hello_([this] {
          const int socket = connection();
          std::string hello = receiveHello(socket);
          close(socket);
          return hello;
      }()) {}

int RawClient::connection() const {
    const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const timeval timeout{30, 0};
    for (const int option : {SO_SNDTIMEO, SO_RCVTIMEO})
        setsockopt(socket, SOL_SOCKET, option, &timeout, sizeof timeout);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path_.copy(address.sun_path, sizeof address.sun_path - 1);
    if (connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) fail(path_);
    return socket;
}

void RawClient::send(std::uint64_t connections, const std::stop_token& stop) {
    for (std::uint64_t i = 0; i < connections && !stop.stop_requested(); ++i) {
        const std::uint32_t number = connections_;
        const std::string next = validFrame(rawClient, number + 1);
        // Truncated at a different byte each time: in the header, in the flat form, in the text.
        const std::string bytes = hello_ + validFrame(rawClient, number) + malformedFrame(number) +
                                  next.substr(0, 1 + number * 7U % (next.size() - 1));
        const int socket = connection();
        if (::send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(bytes.size()))
            fail("cannot send");
        close(socket);
        ++connections_;
    }
}

} // namespace soak
