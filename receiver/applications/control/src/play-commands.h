// The shell commands that play and stop on terminals. Each queues its request at once, prints its id, by which the
// command `request` knows what becomes of it, and drops the pending `zap` requests of its terminals.
#pragma once

#include "request-log.h"

#include <appovshell/server.h>
#include <tvservice-adapter/model-tvservice-adapter.h>
#include <tvservice-adapter/zapper.h>

#include <string>

namespace control {

// Must live as long as the process: the shell keeps pointers to it.
class PlayCommands {
public:
    PlayCommands(tvservice::ModelTvServiceAdapter& adapter, tvservice::Zapper& zapper, RequestLog& log,
                 appovshell::Server& shell)
        : adapter_(adapter), zapper_(zapper), log_(log), shell_(shell) {}

    // Registers every command with the shell. Returns 0 or the shell's first negative result.
    int registerAll();

private:
    int play();
    int stop();
    // Requests the same for all terminals of the first argument.
    int submit(const tvservice::TvServiceReq_t& common);

    tvservice::ModelTvServiceAdapter& adapter_;
    tvservice::Zapper& zapper_;
    RequestLog& log_;
    appovshell::Server& shell_;
};

} // namespace control
