// An HTTP server that misbehaves: each address in its own way.
#pragma once

#include <arpa/inet.h>
#include <atomic>
#include <functional>
#include <map>
#include <mutex>
#include <netinet/in.h>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace hostile {

// One connection.
class Connection {
public:
    Connection(int socket, const std::atomic<bool>& isOver) : socket_(socket), isOver_(isOver) {}
    ~Connection() { ::close(socket_); }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    // The path of the request, or an empty text without one.
    std::string request() const {
        std::string text;
        char bytes[4096];
        while (text.find("\r\n\r\n") == std::string::npos) {
            if (!waits(POLLIN)) return {};
            const ssize_t count = ::recv(socket_, bytes, sizeof bytes, MSG_DONTWAIT);
            if (count <= 0) return {};
            text.append(bytes, static_cast<std::size_t>(count));
        }
        const auto begin = text.find(' ') + 1;
        return text.substr(begin, text.find(' ', begin) - begin);
    }
    // Returns false when the client has gone, or the server is over.
    bool send(const std::string& text) const {
        for (std::size_t at = 0; at < text.size();) {
            if (!waits(POLLOUT)) return false;
            const ssize_t count = ::send(socket_, text.data() + at, text.size() - at, MSG_NOSIGNAL | MSG_DONTWAIT);
            if (count <= 0) return false;
            at += static_cast<std::size_t>(count);
        }
        return true;
    }
    // Until the client has gone, or the server is over.
    void stall() const {
        char byte = 0;
        while (waits(POLLIN) && ::recv(socket_, &byte, 1, MSG_DONTWAIT) > 0) {
        }
    }

private:
    bool waits(short event) const {
        pollfd entry{socket_, event, 0};
        constexpr int interval = 50; // ms; how long the server's end may have to wait
        while (!isOver_)
            if (::poll(&entry, 1, interval) > 0) return true;
        return false;
    }

    const int socket_;
    const std::atomic<bool>& isOver_;
};

class Server {
public:
    using Answer = std::function<void(const Connection&, const std::string& path)>;

    // answers: by the beginning of a path.
    explicit Server(std::map<std::string, Answer> answers) : answers_(std::move(answers)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        auto* const any = reinterpret_cast<sockaddr*>(&address);
        constexpr int queue = 64;
        if (::bind(socket_, any, length) != 0 || ::listen(socket_, queue) != 0 ||
            ::getsockname(socket_, any, &length) != 0)
            throw std::runtime_error("the test's server has no address");
        port_ = ntohs(address.sin_port);
        acceptor_ = std::thread([this] { serve(); });
    }
    ~Server() {
        isOver_ = true;
        acceptor_.join();
        for (std::thread& thread : connections_) thread.join();
        ::close(socket_);
    }
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    std::string address(const std::string& path) const { return "http://127.0.0.1:" + std::to_string(port_) + path; }
    int open() const { return open_; } // connections

private:
    void serve() {
        pollfd entry{socket_, POLLIN, 0};
        constexpr int interval = 50; // ms
        while (!isOver_) {
            if (::poll(&entry, 1, interval) <= 0) continue;
            const int accepted = ::accept4(socket_, nullptr, nullptr, SOCK_CLOEXEC);
            if (accepted < 0) continue;
            ++open_;
            connections_.emplace_back([this, accepted] {
                answer(Connection(accepted, isOver_));
                --open_;
            });
        }
    }
    void answer(const Connection& connection) const {
        const std::string path = connection.request();
        // Backwards: of several beginnings, the longest.
        for (auto each = answers_.rbegin(); each != answers_.rend(); ++each)
            if (!path.empty() && path.starts_with(each->first)) return each->second(connection, path);
    }

    const std::map<std::string, Answer> answers_;
    const int socket_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    int port_ = 0;
    std::atomic<bool> isOver_ = false;
    std::atomic<int> open_ = 0;
    std::vector<std::thread> connections_;
    std::thread acceptor_;
};

} // namespace hostile
