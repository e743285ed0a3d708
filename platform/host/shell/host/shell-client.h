// The client side of a process's debug shell (see appovshell/server.h).
#pragma once

#include <chrono>
#include <stdexcept>
#include <string>
#include <vector>

namespace host {

// Why there is no answer from a shell.
class ShellError : public std::runtime_error {
public:
    enum class Kind {
        NotAvailable, // nobody serves the socket, or the connection ended before the answer
        Refused,      // the shell belongs to another user
        TimedOut,
        BadData, // what came is no answer
    };
    ShellError(Kind kind, const std::string& text) : std::runtime_error(text), kind_(kind) {}
    Kind kind() const { return kind_; }

private:
    Kind kind_;
};

struct ShellReply {
    int status = 0;     // 0, or the command's negative result; see appovshell::Server
    std::string output; // what the command printed
    std::string error;  // the shell's own explanation of a negative status, may be empty
};

// A connection to a shell; for one thread at a time.
class ShellClient {
public:
    ShellClient() = default;
    ~ShellClient();
    ShellClient(const ShellClient&) = delete;
    ShellClient& operator=(const ShellClient&) = delete;

    // Connects to the socket at path (see shellEndpointOf), in place of any connection before. Throws ShellError.
    void connect(const std::string& path);
    bool isConnected() const { return socket_ >= 0; }
    void disconnect();

    // Runs one command line, or a line that is split into its words already and so needs no quoting. Throws ShellError
    // when there is no answer within the timeout; the connection is then closed.
    ShellReply run(const std::string& line, bool json = false,
                   std::chrono::milliseconds timeout = std::chrono::seconds(10));
    ShellReply run(const std::vector<std::string>& words, bool json = false,
                   std::chrono::milliseconds timeout = std::chrono::seconds(10));

private:
    ShellReply exchange(const std::string& request, std::chrono::milliseconds timeout);

    int socket_ = -1;
    std::string path_;
};

} // namespace host
