// The debug shell: text commands that a process offers to a developer (see tvctl).
#pragma once

#include <string>

namespace appovshell {

// Runs a command. Called on the shell's thread, one command at a time per process. During the call the server's
// getArgument and print refer to this invocation. Returns 0 for success, negative for failure.
using CommandHandler = int (*)(void* context);

// The shell service of a process, registered in the framework's interface registry under name().
class Server {
public:
    virtual ~Server() = default;

    // The interface key.
    static const char* name();

    // Adds a command. specification: the command word, then an item per argument, ":s" for a string or ":d" for a
    // decimal integer. The last item may be "[:s]" or "[:d]" (optional) or "..." (the rest of the line, verbatim).
    // Words of a line are separated by blanks; double quotes and backslashes put blanks into a word. A line that does
    // not match the specification is rejected before the handler is called. Exception: a command whose only argument is
    // ":s" also runs without it, with an empty argument, so that "list" can mean "list everything".
    // help: one line of text. It may begin with the arguments' names in capitals, one word for each argument
    // ("TERMINAL URI [UUID] - plays a channel"); usage messages show them.
    // handler and context must stay valid until the process ends. From any thread.
    // Returns 0, -17 when the command word exists already, -22 for a malformed specification or a null handler.
    virtual int registerCommand(const std::string& specification, const std::string& help, CommandHandler handler,
                                void* context) = 0;

    // Argument index (from 0) of the running command; empty when there is none. "..." counts as one argument.
    virtual std::string getArgument(unsigned index) = 0;

    // Appends text to the output of the running command; has no effect outside a command. Output beyond 1 MiB is cut
    // off, and the command then fails with -90.
    virtual void print(const std::string& text) = 0;

    // Whether the client requested JSON for the running command.
    virtual bool wantsJson() = 0;
};

} // namespace appovshell

// Creates the members that provide a process's shell: a null-terminated array for frame::Process::startAppMembersSync.
extern "C" void** CreateOvshellProxy();
