// The shell commands that send one request each to the TV service, through the adapter.
#pragma once

#include "arguments.h"
#include "request-syntax.h"

#include <appovshell/server.h>
#include <tvservice-adapter/model-tvservice-adapter.h>

#include <deque>
#include <vector>

namespace control {

// Must live as long as the process: the shell keeps pointers to it.
class RequestCommands {
public:
    RequestCommands(tvservice::ModelTvServiceAdapter& adapter, appovshell::Server& shell)
        : adapter_(adapter), shell_(shell) {}

    // Registers every command with the shell. Returns 0 or the shell's first negative result.
    int registerAll();

private:
    // A command and the request that it sends.
    struct Request {
        RequestSyntax syntax;
        const char* message;
        // Reads the arguments and, if they are valid, sends the request. Returns the result of sending.
        int (*send)(tvservice::ModelTvServiceAdapter& adapter, ArgumentReader& reader);
    };
    struct Context {
        RequestCommands* self;
        const Request* request;
    };

    // Adds the message, unless its arguments cannot be typed.
    template <class Message, auto method> static void add(std::vector<Request>& requests);
    template <class Message, auto method>
    static int send(tvservice::ModelTvServiceAdapter& adapter, ArgumentReader& reader);
    int run(const Request& request);

    tvservice::ModelTvServiceAdapter& adapter_;
    appovshell::Server& shell_;
    std::deque<Context> contexts_; // one per registered command, which points to it
};

} // namespace control
