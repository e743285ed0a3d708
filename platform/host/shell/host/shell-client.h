// The client side of a process's debug shell (see appovshell/server.h).
#pragma once

#include <chrono>
#include <cstddef>
#include <stdexcept>
#include <string>
#include <sys/types.h>
#include <vector>

namespace host {

// Why a shell gave no answer.
class ShellError : public std::runtime_error {
public:
    enum class Kind {
        NotAvailable, // there is no server at the socket, or the connection ended before the answer
        Refused,      // the shell belongs to another user
        TimedOut,
        BadData, // the answer is malformed
    };
    ShellError(Kind kind, const std::string& text, pid_t process = 0)
        : std::runtime_error(text), kind_(kind), process_(process) {}
    Kind kind() const { return kind_; }
    // The process that serves the shell; 0 when it is not known.
    pid_t process() const { return process_; }

private:
    Kind kind_;
    pid_t process_;
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

    // Connects to the socket at path (see shellEndpointOf) and closes an earlier connection. Throws ShellError.
    void connect(const std::string& path);
    bool isConnected() const { return socket_ >= 0; }
    void disconnect();

    // Runs one command, given as a line or as its words, which need no quoting. Throws ShellError when there is no
    // answer within the timeout; the connection is then closed.
    ShellReply run(const std::string& line, bool json = false,
                   std::chrono::milliseconds timeout = std::chrono::seconds(10));
    ShellReply run(const std::vector<std::string>& words, bool json = false,
                   std::chrono::milliseconds timeout = std::chrono::seconds(10));

private:
    ShellReply exchange(const std::string& request, std::chrono::milliseconds timeout);

    int socket_ = -1;
    std::string path_;
    pid_t process_ = 0;
};

// The first words of a command line, at most so many, split as a shell splits them: by blanks, with double quotes and
// backslashes. Throws std::invalid_argument, with the reason, for a quote that is not closed and the like.
std::vector<std::string> wordsOf(const std::string& line, std::size_t most);

} // namespace host
