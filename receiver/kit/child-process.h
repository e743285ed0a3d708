// One child process that never outlives its parent.
#pragma once

#include <chrono>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace receiver {

struct ChildCommand {
    std::filesystem::path program;
    std::vector<std::string> arguments;
    std::map<std::string, std::string> environment; // added to the parent's without its receiver variables
    std::filesystem::path errorLog; // receives stderr and stdout; empty: shares the parent's and its terminal
};

class ChildProcess {
public:
    // Throws std::system_error when the program cannot be started.
    explicit ChildProcess(const ChildCommand& command);
    ~ChildProcess(); // kills it if it still runs

    pid_t id() const { return pid_; }
    bool running();
    void signal(int number);
    // Sends SIGTERM; kills it when it has not ended in time.
    void terminate(std::chrono::milliseconds timeout);
    void wait(); // until it ends by itself

    // How it ended: empty while it runs or after exit code 0, else a text ("exit code 1", "signal 9").
    std::string failure();
    std::optional<int> exitCode(); // nullopt while it runs or when a signal ended it

    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

private:
    void reap(int options);

    pid_t pid_ = -1;
    std::optional<int> status_; // as waitpid gives it
};

} // namespace receiver
