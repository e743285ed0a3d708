// The shell commands that play and stop on terminals. Each queues its request at once, and drops the pending `zap`
// requests of its terminals.
#pragma once

#include <appovshell/server.h>
#include <tvservice-adapter/model-tvservice-adapter.h>
#include <tvservice-adapter/zapper.h>

#include <string>

namespace control {

// Must live as long as the process: the shell keeps pointers to it.
class PlayCommands {
public:
    PlayCommands(tvservice::ModelTvServiceAdapter& adapter, tvservice::Zapper& zapper, appovshell::Server& shell)
        : adapter_(adapter), zapper_(zapper), shell_(shell) {}

    // Registers every command with the shell. Returns 0 or the shell's first negative result.
    int registerAll();

private:
    int play();
    int stop();
    int submit(const std::string& uri, const std::string& uuid);

    tvservice::ModelTvServiceAdapter& adapter_;
    tvservice::Zapper& zapper_;
    appovshell::Server& shell_;
};

} // namespace control
