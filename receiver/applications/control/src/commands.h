// All shell commands of the control application. They control the receiver and show its state.
//
// Each prints text, or JSON if requested.
#pragma once

#include "play-commands.h"
#include "request-commands.h"
#include "state-commands.h"
#include "zap-commands.h"

namespace control {

// Must live as long as the process: the shell keeps pointers to it.
class Commands {
public:
    Commands(tvservice::ModelTvServiceAdapter& adapter, const TerminalView& view, const NotificationLog& notifications,
             RequestLog& requests, appovshell::Server& shell)
        : zap_(adapter, shell),
          play_(adapter, zap_.zapper(), requests, shell),
          requests_(adapter, shell),
          state_(adapter, view, notifications, requests, shell) {}

    // Registers every command with the shell. Returns 0 or the shell's first negative result.
    int registerAll() {
        int result = play_.registerAll();
        if (result == 0) result = zap_.registerAll();
        if (result == 0) result = requests_.registerAll();
        if (result == 0) result = state_.registerAll();
        return result;
    }

    // Stops everything that would use the adapter after the process's end.
    void end() { zap_.zapper().end(); }

private:
    ZapCommands zap_;
    PlayCommands play_;
    RequestCommands requests_;
    StateCommands state_;
};

} // namespace control
