#include "shell/shell-server.h"

#include "log/log.h"
#include "recorder/recorder.h"
#include "request.h"
#include "sockets/acceptor.h"
#include "sockets/local-socket.h"

#include <algorithm>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/post.hpp>
#include <boost/system/system_error.hpp>
#include <cerrno>
#include <exception>
#include <string_view>
#include <sys/socket.h>
#include <system_error>
#include <utility>
#include <vector>

namespace appovshell {
namespace {

using Clock = std::chrono::steady_clock;
using Socket = boost::asio::posix::stream_descriptor;
using host::io::FileDescriptor;

// How long to wait for memory before accepting clients again.
constexpr std::chrono::milliseconds stallPause{100};

bool isTemporary(int error) { return error == EAGAIN || error == EINTR; }

struct Client {
    Client(boost::asio::io_context& io, int connection) : socket(io, connection) {}

    Socket socket;
    std::string input;  // requests that have not run yet: at most a line and the bytes of one receive
    std::string unsent; // answers: at most maximumUnsent bytes, or one answer
    Clock::time_point active = Clock::now(); // when it last sent a request or read part of an answer
    Clock::time_point begun = active;        // when the content of input began to arrive
    bool asked = false;                      // whether it has sent a complete request
    bool ending = false;                     // nothing more is read; it is dropped once it has its answers
    bool lost = false;                       // the connection is dead
    bool reading = false, flushing = false;  // an asynchronous step is pending
};

// Whether there is a complete request, or one that is already too long.
bool hasRequest(const Client& client) {
    return !client.ending && !client.lost &&
           (client.input.size() > ShellServer::maximumLine || client.input.find('\n') != std::string::npos);
}

} // namespace

// Everything runs on the shell's thread, except construction, destruction and stop.
class ShellServer::Clients final : private host::io::AcceptorUser {
public:
    Clients(ShellServer& shell, const std::string& path, uid_t user)
        : shell_(shell),
          user_(user),
          socket_("debug shell", path),
          acceptor_(io_, socket_.descriptor(),
                    [this](FileDescriptor connection, const sockaddr_storage&) { take(std::move(connection)); }) {
        clients_.reserve(maximumClients + maximumSilent + 1);
    }
    ~Clients() {
        while (!clients_.empty()) drop(*clients_.back());
    }

    void serve() noexcept;
    void stop() { io_.stop(); }

private:
    using ClientPtr = std::shared_ptr<Client>;
    using Step = void (Clients::*)(Client&);

    void onCannotAccept(const char* reason) noexcept override;
    void onStalled(const char* reason) noexcept override;
    void take(FileDescriptor connection) noexcept;
    void runStep(const ClientPtr& client, Step step) noexcept;
    void awaitNext(const ClientPtr& client);
    void serveRequest(Client& client);
    void receive(Client& client);
    void runRequest(Client& client);
    void recordResult(std::string_view text) const;
    std::size_t askingClients() const;
    bool isIdle(Client& client, Clock::time_point now) const;
    bool takeSlot();
    void evictSilent() noexcept;
    void evict(Client& client, const std::string& why) noexcept;
    void reject(Client& client);
    void reportOutOfMemory(int socket, bool maySend) noexcept;
    void send(Client& client, const std::string& text);
    void flush(Client& client);
    void drop(Client& client) noexcept;

    // Created in advance, because they may be needed when memory has run out.
    const std::string full_ = "the shell already has " + std::to_string(maximumClients) + " clients";
    const std::string idle_ = full_ + ", and this one was idle the longest";
    const std::string silent_ = "the shell evicted this client: it sent no request while " +
                                std::to_string(maximumSilent) + " others connected";
    ShellServer& shell_;
    const uid_t user_;
    boost::asio::io_context io_{1};
    const boost::asio::executor_work_guard<boost::asio::io_context::executor_type> work_{io_.get_executor()};
    const host::io::ListeningSocket socket_;
    host::io::Acceptor acceptor_;
    std::uint64_t commands_ = 0;     // that were executed
    bool stalled_ = true;            // no pending event will make it accept clients
    std::vector<ClientPtr> clients_; // oldest first; capacity is reserved for all that are possible
};

ShellServer::ShellServer(std::chrono::milliseconds answerTimeout) : answerTimeout_(answerTimeout) {
    host::nameModule(host::Module::shell, "shell");
}

ShellServer::~ShellServer() { stop(); }

void ShellServer::open(const std::string& path, uid_t user) {
    try {
        clients_ = std::make_unique<Clients>(*this, path, user);
    } catch (const boost::system::system_error& error) {
        throw std::system_error(error.code().value(), std::system_category(), "debug shell at " + path);
    }
}

void ShellServer::start() {
    if (!clients_) throw std::system_error(EBADF, std::system_category(), "debug shell without a socket");
    thread_ = std::thread(&Clients::serve, clients_.get());
}

void ShellServer::stop() {
    if (!clients_) return;
    clients_->stop();
    if (thread_.joinable()) thread_.join();
    clients_.reset();
}

void ShellServer::Clients::serve() noexcept {
    while (!io_.stopped()) {
        if (std::exchange(stalled_, false)) acceptor_.listen(*this);
        if (stalled_)
            io_.run_for(stallPause);
        else
            io_.run_one();
    }
}

void ShellServer::Clients::onCannotAccept(const char* reason) noexcept {
    HOST_LOG(shell, vdlDebugWarning, "cannot accept a shell client: %s\n", reason);
}

void ShellServer::Clients::onStalled(const char* reason) noexcept {
    stalled_ = true;
    onCannotAccept(reason);
}

void ShellServer::Clients::take(FileDescriptor connection) noexcept {
    try {
        if (const uid_t uid = host::io::peerOf(connection.get()).uid; uid != user_) {
            HOST_LOG(shell, vdlDebugWarning, "rejected a shell client of user %u\n", uid);
            const std::string text = statusLine(-EACCES, "the shell serves its own user only");
            ::send(connection.get(), text.data(), text.size(), MSG_NOSIGNAL);
            return;
        }
        clients_.push_back(std::make_shared<Client>(io_, connection.get()));
        (void)connection.release();
    } catch (const std::exception&) {
        return reportOutOfMemory(connection.get(), true);
    }
    runStep(clients_.back(), &Clients::flush);
    if (clients_.size() - askingClients() > maximumSilent) evictSilent();
}

// Runs a step of a client, then starts waiting for the next one.
void ShellServer::Clients::runStep(const ClientPtr& client, Step step) noexcept {
    if (!client->socket.is_open()) return; // dropped in the meantime
    try {
        (this->*step)(*client);
        awaitNext(client);
    } catch (const std::exception&) {
        reportOutOfMemory(client->socket.native_handle(), client->unsent.empty());
        drop(*client);
    }
}

void ShellServer::Clients::awaitNext(const ClientPtr& client) {
    if (client->lost || (client->ending && client->unsent.empty())) return drop(*client);
    if (!client->unsent.empty() && !client->flushing) {
        client->socket.async_wait(Socket::wait_write, [this, client](const boost::system::error_code&) {
            client->flushing = false;
            runStep(client, &Clients::flush);
        });
        client->flushing = true;
    }
    if (!client->ending && !client->reading) {
        const auto readNext = [this, client](const boost::system::error_code& = {}) {
            client->reading = false;
            runStep(client, &Clients::serveRequest);
        };
        // A client with another complete request runs it before anything more is read from it, after the other clients
        // had their turn.
        hasRequest(*client) ? boost::asio::post(io_, readNext) : client->socket.async_wait(Socket::wait_read, readNext);
        client->reading = true;
    }
}

// Runs at most one request, so that a client with many requests does not delay the others.
void ShellServer::Clients::serveRequest(Client& client) {
    if (!hasRequest(client)) receive(client);
    if (hasRequest(client)) runRequest(client);
}

void ShellServer::Clients::receive(Client& client) {
    char buffer[16 * 1024];
    const auto count = recv(client.socket.native_handle(), buffer, sizeof buffer, MSG_DONTWAIT);
    if (count > 0) {
        if (client.input.empty()) client.begun = Clock::now();
        client.input.append(buffer, static_cast<std::size_t>(count));
    } else if (count == 0) {
        client.ending = true;
    } else if (!isTemporary(errno)) {
        client.lost = true;
    }
}

void ShellServer::Clients::runRequest(Client& client) {
    const auto length = std::min(client.input.find('\n'), client.input.size());
    if (length > maximumLine) {
        send(client, statusLine(-EINVAL, "malformed request: longer than " + std::to_string(maximumLine) + " bytes"));
        // The start of the next request is not searched for.
        client.ending = true;
        return client.input.clear();
    }
    Request request;
    std::string text = shell_.read(std::string_view(client.input).substr(0, length), request);
    if (text.empty()) { // a malformed request gets no slot
        if (!client.asked && !takeSlot()) return reject(client);
        client.asked = true;
        host::recorder::record(host::EventKind::command, ++commands_, "shell",
                               std::string_view(client.input).substr(0, length));
        text = shell_.execute(request);
        recordResult(text);
        client.active = Clock::now();
    }
    client.input.erase(0, length + 1);
    client.begun = Clock::now();
    send(client, text);
}

// Only its last line, the status: what commands print may be long, and often is the same.
void ShellServer::Clients::recordResult(std::string_view text) const {
    text.remove_suffix(1);
    host::recorder::record(host::EventKind::result, commands_, "shell", text.substr(text.rfind('\n') + 1));
}

std::size_t ShellServer::Clients::askingClients() const {
    return static_cast<std::size_t>(
        std::count_if(clients_.begin(), clients_.end(), [](const auto& client) { return client->asked; }));
}

// Whether it has neither a request that arrives or has not run, nor an answer that it still reads. A client that takes
// too long over either counts as idle.
bool ShellServer::Clients::isIdle(Client& client, Clock::time_point now) const {
    if (!client.asked || client.ending || hasRequest(client)) return false;
    if (!client.input.empty() && now - client.begun < shell_.answerTimeout_) return false;
    if (!client.unsent.empty() && now - client.active < shell_.answerTimeout_) return false;
    char byte;
    return recv(client.socket.native_handle(), &byte, 1, MSG_PEEK | MSG_DONTWAIT) < 0 && isTemporary(errno);
}

// Gets a slot for a client with a request. When all are taken, evicts the client that has been idle the longest;
// otherwise sixteen forgotten clients would block everybody. Returns false when none is idle.
bool ShellServer::Clients::takeSlot() {
    if (askingClients() < maximumClients) return true;
    const auto now = Clock::now();
    Client* longest = nullptr;
    for (const ClientPtr& client : clients_)
        if ((!longest || client->active < longest->active) && isIdle(*client, now)) longest = client.get();
    if (!longest) return false;
    HOST_LOG(shell, vdlDebugWarning, "evicted the shell client that was idle the longest: there are %zu already\n",
             maximumClients);
    evict(*longest, idle_);
    return true;
}

// Clients that connect but send no request must not block others.
void ShellServer::Clients::evictSilent() noexcept {
    HOST_LOG(shell, vdlDebugWarning, "evicted a shell client: it sent no request while %zu others connected\n",
             maximumSilent);
    evict(**std::find_if(clients_.begin(), clients_.end(), [](const auto& client) { return !client->asked; }), silent_);
}

// Does not wait until the client has read it: a client that does not read its answers would not read this either.
void ShellServer::Clients::evict(Client& client, const std::string& why) noexcept {
    try {
        if (client.unsent.empty()) send(client, statusLine(-EAGAIN, why));
    } catch (const std::exception&) {
        reportOutOfMemory(client.socket.native_handle(), true);
    }
    drop(client);
}

void ShellServer::Clients::reject(Client& client) {
    HOST_LOG(shell, vdlDebugWarning, "rejected a shell client: there are %zu already\n", maximumClients);
    client.ending = true;
    client.input.clear();
    send(client, statusLine(-EAGAIN, full_));
}

// Reports out of memory to a client whose connection is closed for it, unless part of an answer has been sent.
void ShellServer::Clients::reportOutOfMemory(int socket, bool maySend) noexcept {
    constexpr char text[] = "{\"status\":-12,\"error\":\"the shell is out of memory\"}\n";
    HOST_LOG(shell, vdlDebugWarning, "closed the connection to a shell client: out of memory\n");
    if (maySend) ::send(socket, text, sizeof text - 1, MSG_NOSIGNAL | MSG_DONTWAIT);
}

void ShellServer::Clients::send(Client& client, const std::string& text) {
    // An answer may have any length if the client has read all others: a command's output is limited anyway.
    if (!client.unsent.empty() && client.unsent.size() + text.size() > maximumUnsent) {
        HOST_LOG(shell, vdlDebugWarning, "closed the connection to a shell client that does not read its answers\n");
        client.lost = true;
        return;
    }
    client.unsent += text;
    flush(client);
}

void ShellServer::Clients::flush(Client& client) {
    std::size_t sent = 0;
    while (sent < client.unsent.size()) {
        const auto count = ::send(client.socket.native_handle(), client.unsent.data() + sent,
                                  client.unsent.size() - sent, MSG_NOSIGNAL | MSG_DONTWAIT);
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

void ShellServer::Clients::drop(Client& client) noexcept {
    boost::system::error_code ignored;
    client.socket.close(ignored);
    std::erase_if(clients_, [](const auto& known) { return !known->socket.is_open(); });
}

} // namespace appovshell
