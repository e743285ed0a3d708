// Runs commands in a receiver's shell and reports their outcome as tvctl's options say.
#pragma once

#include "options.h"

#include <host/shell-client.h>

#include <string>
#include <vector>

namespace tvctl {

class Session {
public:
    explicit Session(const Options& options) : options_(options) {}

    // Run one command, print its output on standard output and everything else on standard error. Return the exit code.
    int run(const std::vector<std::string>& words);
    int run(const std::string& line);

private:
    template <class Command> host::ShellReply ask(const Command& command, bool json);
    template <class Command> int runAndReport(const Command& command);
    // Prints a command's output; throws CommandFailure when the command failed.
    int print(const host::ShellReply& reply) const;

    const Options& options_;
    host::ShellClient client_;
};

} // namespace tvctl
