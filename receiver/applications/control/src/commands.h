// All shell commands of the control application: the receiver's remote control, and a look at what it is doing.
//
// Each prints lines for people, or JSON when the shell was asked for it.
#pragma once

#include "looking-commands.h"
#include "play-commands.h"
#include "request-commands.h"
#include "zap-commands.h"

namespace control {

// Lives as long as the process: the shell keeps pointers to it.
class Commands {
public:
    Commands(tvservice::ModelTvServiceAdapter& adapter, const TerminalView& view, const NotificationLog& notifications,
             appovshell::Server& shell)
        : zap_(adapter, shell),
          play_(adapter, zap_.zapper(), shell),
          requests_(adapter, shell),
          looking_(adapter, view, notifications, shell) {}

    // Registers every command with the shell: 0, or the shell's first negative result.
    int registerAll() {
        int result = play_.registerAll();
        if (result == 0) result = zap_.registerAll();
        if (result == 0) result = requests_.registerAll();
        if (result == 0) result = looking_.registerAll();
        return result;
    }

    // Ends what would use the adapter beyond the process's end.
    void end() { zap_.zapper().end(); }

private:
    ZapCommands zap_;
    PlayCommands play_;
    RequestCommands requests_;
    LookingCommands looking_;
};

} // namespace control
