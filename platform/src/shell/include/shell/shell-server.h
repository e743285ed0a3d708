// A shell at a socket: takes commands from several clients and runs them one at a time on a thread of its own.
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
    static constexpr std::size_t maximumClients = 16;     // that have asked for something
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
    class Clients;

    const std::chrono::milliseconds answerTimeout_;
    std::unique_ptr<Clients> clients_; // while the shell is open
    std::thread thread_;
};

} // namespace appovshell
