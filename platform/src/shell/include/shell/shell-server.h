// A shell at a socket: accepts commands from several clients and runs them one at a time on its own thread.
#pragma once

#include "shell/command-table.h"

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <sys/types.h>
#include <thread>

namespace appovshell {

class ShellServer : public CommandTable {
public:
    static constexpr std::size_t maximumClients = 16;         // that have sent a request
    static constexpr std::size_t maximumSilent = 64;          // others; above this number the oldest is evicted
    static constexpr std::size_t maximumLine = 64 * 1024;     // bytes of one request
    static constexpr std::size_t maximumUnsent = 1024 * 1024; // bytes of answers that a client has not read yet

    // A client that has not read its answers for answerTimeout counts as idle.
    explicit ShellServer(std::chrono::milliseconds answerTimeout = std::chrono::seconds(10));
    ~ShellServer(); // stops

    // Listens at path for clients of the given user. Throws std::runtime_error, with the reason, when the socket cannot
    // be created. Clients that connect before start are served once it is called.
    void open(const std::string& path, uid_t user);
    // Starts the thread. Throws std::system_error when it cannot be started or the shell is not open, and
    // std::bad_alloc. A client for whose request or answer there is not enough memory later gets an error, and its
    // connection is closed.
    void start();
    // Waits for the running command, closes the connections, ends the thread and removes the socket. Must not be called
    // from a command. Has no effect when called again.
    void stop();

private:
    class Clients;

    const std::chrono::milliseconds answerTimeout_;
    std::unique_ptr<Clients> clients_; // while the shell is open
    std::thread thread_;
};

} // namespace appovshell
