// The shell command that zaps: of several quick requests for a terminal, only the newest is executed.
#pragma once

#include <appovshell/server.h>
#include <tvservice-adapter/zapper.h>

namespace control {

// Must live as long as the process: the shell keeps pointers to it.
class ZapCommands {
public:
    ZapCommands(tvservice::ModelTvServiceAdapter& adapter, appovshell::Server& shell);

    // Registers every command with the shell. Returns 0 or the shell's first negative result.
    int registerAll();

    tvservice::Zapper& zapper() { return zapper_; }

private:
    int zap();

    appovshell::Server& shell_;
    tvservice::Zapper zapper_;
};

} // namespace control
