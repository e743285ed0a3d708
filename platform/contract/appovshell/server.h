// The debug shell: text commands that a process offers to a developer (see tvctl).
#pragma once

#include <string>

namespace appovshell {

// A command's work. Called on the shell's thread, one command at a time per process. During the call the server's
// getArgument and print refer to this invocation. Returns 0 for success, negative for failure.
using CommandHandler = int (*)(void* context);

// The shell service of a process, registered in the framework's interface registry under name().
class Server {
public:
    virtual ~Server() = default;

    // The interface key.
    static const char* name();

    // Adds a command. specification: the command word, then an item per argument, ":s" a string or ":d" a decimal
    // integer; the last one may be "[:s]" or "[:d]" (may be missing) or "..." (the rest of the line, verbatim).
    // A line's words are separated by blanks; double quotes and backslashes keep blanks in a word. A line that does not
    // match its specification never reaches the handler, with one exception: a command whose only argument is ":s" also
    // runs without it, the argument then being empty, so that "list" can mean "list everything".
    // help: one line for people. It may begin with the arguments' names in capitals, one word for each argument
    // ("TERMINAL URI [UUID] - plays a channel"); usage messages are made of them.
    // handler and context must stay valid while the process lives. From any thread.
    // Returns 0, -17 when the command word is taken, -22 for a malformed specification or a null handler.
    virtual int registerCommand(const std::string& specification, const std::string& help, CommandHandler handler,
                                void* context) = 0;

    // Argument index (from 0) of the command under way; empty when there is none. "..." counts as one argument.
    virtual std::string getArgument(unsigned index) = 0;

    // Adds text to what the command under way prints; outside a command it goes nowhere. A command that prints more
    // than 1 MiB has its output cut there and fails with -90.
    virtual void print(const std::string& text) = 0;

    // Whether whoever gave the command under way asked for JSON.
    virtual bool wantsJson() = 0;
};

} // namespace appovshell

// Makes the members that give a process its shell: a null-terminated array for frame::Process::startAppMembersSync.
extern "C" void** CreateOvshellProxy();
