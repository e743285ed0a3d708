// All shell commands of the control application: the receiver's remote control, and a look at what it is doing.
//
// Each prints lines for people, or JSON when the shell was asked for it.
#pragma once

#include "looking-commands.h"
#include "play-commands.h"
#include "request-commands.h"

namespace control {

// Lives as long as the process: the shell keeps pointers to it.
class Commands {
public:
    Commands(tvservice::ModelTvServiceAdapter& adapter, const TerminalView& view, const NotificationLog& notifications,
             appovshell::Server& shell)
        : play_(adapter, shell), requests_(adapter, shell), looking_(adapter, view, notifications, shell) {}

    // Registers every command with the shell: 0, or the shell's first negative result.
    int registerAll() {
        int result = play_.registerAll();
        if (result == 0) result = requests_.registerAll();
        if (result == 0) result = looking_.registerAll();
        return result;
    }

private:
    PlayCommands play_;
    RequestCommands requests_;
    LookingCommands looking_;
};

} // namespace control
