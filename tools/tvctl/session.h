// Running commands in a receiver's shell and reporting on them as tvctl's options say.
#pragma once

#include "options.h"

#include <host/shell-client.h>

#include <string>
#include <vector>

namespace tvctl {

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
    // Prints what a command printed; throws CommandFailure when it failed.
    int print(const host::ShellReply& reply) const;

    const Options& options_;
    host::ShellClient client_;
};

} // namespace tvctl
