// Running commands in a receiver's shell and reporting on them as tvctl's options say.
#pragma once

#include <host/shell-client.h>

#include <chrono>
#include <string>
#include <vector>

namespace tvctl {

enum ExitCode {
    exitDone = 0,
    exitFailed = 1,
    exitUsage = 2,
    exitNotAvailable = 3,
    exitTimedOut = 4,
    exitRefused = 5,
    exitBadData = 6,
    exitInterrupted = 130,
};

struct Options {
    std::string target = "frame-host";
    bool json = false;
    bool quiet = false;
    std::chrono::milliseconds timeout = std::chrono::seconds(10);
};

class Session {
public:
    explicit Session(const Options& options) : options_(options) {}

    // Run one command and report its outcome: what it printed on standard output, everything else on standard error.
    // They return the exit code.
    int run(const std::vector<std::string>& words);
    int run(const std::string& line);

    // The receiver's command words; none when it cannot be asked.
    std::vector<std::string> commandWords();

private:
    template <class Command> host::ShellReply ask(const Command& command, bool json);
    template <class Command> int runAndReport(const Command& command);
    int report(const host::ShellReply& reply) const;
    int fail(int exitCode, int status, const std::string& error) const;

    const Options& options_;
    host::ShellClient client_;
};

} // namespace tvctl
