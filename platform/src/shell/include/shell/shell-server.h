// A shell at a socket: takes commands from several clients and runs them one at a time on a thread of its own.
#pragma once

#include "base/file-descriptor.h"
#include "base/socket-lock.h"
#include "shell/command-table.h"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <list>
#include <memory>
#include <poll.h>
#include <string>
#include <sys/types.h>
#include <thread>
#include <vector>

namespace appovshell {

class ShellServer : public CommandTable {
public:
    static constexpr std::size_t maximumClients = 16;     // that have asked for something; see takeSlot
    static constexpr std::size_t maximumSilent = 64;      // others; beyond it the oldest is evicted
    static constexpr std::size_t maximumLine = 64 * 1024; // bytes of one request
    static constexpr std::size_t maximumUnsent =
        1024 * 1024; // bytes that answers may wait in for a client to read them

    // A client that has not read its answers for the time of answerTimeout counts as idle.
    explicit ShellServer(std::chrono::milliseconds answerTimeout = std::chrono::seconds(10));
    ~ShellServer(); // stops

    // Listens at path for clients of the given user. Throws std::runtime_error, saying what is wrong, when the socket
    // cannot be had. Clients that connect before start are served from then on.
    void open(const std::string& path, uid_t user);
    // Starts the thread. Throws std::system_error when there is none to be had, or when the shell is not open, and
    // std::bad_alloc. A client for whose request or answer there is no memory later is told so and let go.
    void start();
    // Waits for the command under way, ends the connections and the thread, and removes the socket. Not from a command.
    // Harmless when called again.
    void stop();

private:
    using Clock = std::chrono::steady_clock;
    struct Client {
        host::io::FileDescriptor socket;
        std::string input;  // requests that have not run yet, at most maximumLine and what one receive brings
        std::string unsent; // answers, at most maximumUnsent or one answer
        Clock::time_point active = Clock::now(); // when it last asked for something or read of its answers
        Clock::time_point begun = active;        // when what is in input began to arrive
        bool asked = false;                      // a whole request, whatever it was
        bool ending = false;                     // hears no more: it is dropped when it has its answers
        bool lost = false;                       // the connection is dead
    };

    void serve() noexcept;
    int pollTimeout() const;
    void accept() noexcept;
    void admit(Client& client);
    void evictSilent() noexcept;
    std::size_t askingClients() const;
    static bool hasRequest(const Client& client);
    bool isIdle(const Client& client, Clock::time_point now) const;
    bool takeSlot();
    void reject(Client& client);
    void takeTurn(Client& client, short events) noexcept;
    void receive(Client& client);
    void runRequest(Client& client);
    void giveUp(Client& client) noexcept;
    void send(Client& client, const std::string& text);
    void flush(Client& client) noexcept;

    const std::chrono::milliseconds answerTimeout_;
    std::string path_;
    uid_t user_ = 0;
    std::unique_ptr<host::io::SocketLock> lock_; // of the path, while the shell is open
    host::io::FileDescriptor listener_, wake_;
    std::atomic<bool> stopping_ = false;
    bool acceptPaused_ = false;  // the process is out of descriptors
    std::list<Client> clients_;  // at most maximumClients + maximumSilent
    std::vector<pollfd> polled_; // has room for all that there can be
    std::thread thread_;
};

} // namespace appovshell
