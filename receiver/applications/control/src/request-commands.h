// The shell commands that send one request each to the TV service, through the adapter.
#pragma once

#include "arguments.h"

#include <appovshell/server.h>
#include <tvservice-adapter/model-tvservice-adapter.h>

#include <deque>

namespace control {

// Lives as long as the process: the shell keeps pointers to it.
class RequestCommands {
public:
    RequestCommands(tvservice::ModelTvServiceAdapter& adapter, appovshell::Server& shell)
        : adapter_(adapter), shell_(shell) {}

    // Registers every command with the shell: 0, or the shell's first negative result.
    int registerAll();

private:
    // A command and the request that it sends.
    struct Request {
        const char* command;
        const char* arguments; // their names: the leaves of the message's arguments in order
        const char* help;
        const char* message;
        // Reads the arguments and, when they are all right, sends the request: what sending it answered.
        int (*send)(tvservice::ModelTvServiceAdapter& adapter, ArgumentReader& reader);
    };
    struct Context {
        RequestCommands* self;
        const Request* request;
    };

    template <class Message, auto method>
    static constexpr Request request(const char* command, const char* arguments, const char* help);
    template <class Message, auto method>
    static int send(tvservice::ModelTvServiceAdapter& adapter, ArgumentReader& reader);
    int run(const Request& request);

    tvservice::ModelTvServiceAdapter& adapter_;
    appovshell::Server& shell_;
    std::deque<Context> contexts_; // of the commands registered, which point at them: one for each in the table
};

} // namespace control
