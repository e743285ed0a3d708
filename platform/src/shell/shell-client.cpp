#include "shell/command-line.h"
#include "sockets/local-socket.h"

#include <host/shell-client.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <nlohmann/json.hpp>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace host {
namespace {

using Kind = ShellError::Kind;
using Clock = std::chrono::steady_clock;

constexpr std::size_t maximumAnswer = 16 * 1024 * 1024;

std::string textOf(int error) { return std::system_category().message(error); }

// Waits until the socket can be read or written; throws when the deadline passes first.
void await(int socket, short events, Clock::time_point deadline) {
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
        pollfd polled{socket, events, 0};
        const int ready = poll(&polled, 1, static_cast<int>(std::clamp<decltype(left)>(left, 0, 1000)));
        if (ready > 0) return;
        if (ready < 0 && errno != EINTR) throw ShellError(Kind::NotAvailable, "cannot wait: " + textOf(errno));
        if (left <= 0) throw ShellError(Kind::TimedOut, "timed out waiting for the answer");
    }
}

// Adds a line of an answer to reply. Returns whether it was the last one.
bool takeLine(std::string_view line, ShellReply& reply) {
    const auto json = nlohmann::json::parse(line, nullptr, false);
    const auto text = [&json](const char* key) { return json.at(key).get_ref<const std::string&>(); };
    if (json.is_object() && json.contains("output") && json["output"].is_string()) {
        reply.output += text("output");
        return false;
    }
    if (!json.is_object() || !json.contains("status") || !json["status"].is_number_integer())
        throw ShellError(Kind::BadData, "the answer is malformed: " + std::string(line.substr(0, 80)));
    reply.status = json["status"].get<int>();
    if (json.contains("error") && json["error"].is_string()) reply.error = text("error");
    return true;
}

void sendAll(int socket, std::string_view text, Clock::time_point deadline) {
    while (!text.empty()) {
        const auto count = send(socket, text.data(), text.size(), MSG_NOSIGNAL);
        if (count >= 0) {
            text.remove_prefix(static_cast<std::size_t>(count));
        } else if (errno == EAGAIN) {
            await(socket, POLLOUT, deadline);
        } else if (errno == EPIPE || errno == ECONNRESET) {
            return; // a shell that rejects a client sends the reason before it closes
        } else if (errno != EINTR) {
            throw ShellError(Kind::NotAvailable, "cannot send: " + textOf(errno));
        }
    }
}

ShellReply receiveReply(int socket, Clock::time_point deadline) {
    ShellReply reply;
    std::string input;
    std::size_t searched = 0, total = 0;
    std::vector<char> buffer(64 * 1024);
    for (;;) {
        await(socket, POLLIN, deadline);
        const auto count = recv(socket, buffer.data(), buffer.size(), 0);
        if (count < 0 && (errno == EAGAIN || errno == EINTR)) continue;
        if (count < 0) throw ShellError(Kind::NotAvailable, "the connection broke: " + textOf(errno));
        if (count == 0) throw ShellError(Kind::NotAvailable, "the connection ended before the answer did");
        total += static_cast<std::size_t>(count);
        if (total > maximumAnswer) throw ShellError(Kind::BadData, "the answer is too long");
        input.append(buffer.data(), static_cast<std::size_t>(count));
        std::size_t begin = 0;
        for (auto end = input.find('\n', searched); end != std::string::npos; end = input.find('\n', begin)) {
            if (takeLine(std::string_view(input).substr(begin, end - begin), reply)) {
                if (end + 1 != input.size()) throw ShellError(Kind::BadData, "unexpected data after the answer");
                return reply;
            }
            begin = end + 1;
        }
        input.erase(0, begin);
        searched = input.size();
    }
}

std::string toRequest(const char* key, const nlohmann::json& command, bool json) {
    const nlohmann::json request{{key, command}, {"json", json}};
    return request.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}

} // namespace

ShellClient::~ShellClient() { disconnect(); }

void ShellClient::disconnect() {
    if (socket_ >= 0) close(std::exchange(socket_, -1));
}

void ShellClient::connect(const std::string& path) {
    disconnect();
    const int made = io::connectTo(path);
    if (made < 0)
        throw ShellError(made == -EACCES || made == -EPERM ? Kind::Refused : Kind::NotAvailable,
                         "cannot connect to the shell at " + path + ": " + textOf(-made));
    // Checked whatever the modes of the socket and its folder are.
    const auto peer = io::peerOf(made);
    if (peer.uid != geteuid()) {
        close(made);
        throw ShellError(Kind::Refused, "the shell at " + path + " belongs to another user");
    }
    socket_ = made;
    path_ = path;
    process_ = peer.pid;
}

ShellReply ShellClient::run(const std::string& line, bool json, std::chrono::milliseconds timeout) {
    return exchange(toRequest("line", line, json), timeout);
}

ShellReply ShellClient::run(const std::vector<std::string>& words, bool json, std::chrono::milliseconds timeout) {
    return exchange(toRequest("words", words, json), timeout);
}

ShellReply ShellClient::exchange(const std::string& request, std::chrono::milliseconds timeout) {
    if (!isConnected()) throw ShellError(Kind::NotAvailable, "not connected to a shell");
    const auto deadline = Clock::now() + timeout;
    try {
        sendAll(socket_, request, deadline);
        return receiveReply(socket_, deadline);
    } catch (const ShellError& error) {
        // A later answer would be taken for that of the next command.
        disconnect();
        throw ShellError(error.kind(), path_ + ": " + error.what(), process_);
    }
}

std::vector<std::string> wordsOf(const std::string& line, std::size_t most) {
    auto taken = appovshell::takeWords(line, most);
    if (taken.error) throw std::invalid_argument(taken.error);
    return std::move(taken.words);
}

} // namespace host
