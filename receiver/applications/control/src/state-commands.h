// The shell commands that show the receiver's state and its notifications.
#pragma once

#include "notification-log.h"
#include "request-log.h"
#include "terminal-view.h"

#include <appovshell/server.h>
#include <tvservice-adapter/model-tvservice-adapter.h>

namespace control {

// Must live as long as the process: the shell keeps pointers to it.
class StateCommands {
public:
    StateCommands(const tvservice::ModelTvServiceAdapter& adapter, const TerminalView& view,
                  const NotificationLog& notifications, RequestLog& requests, appovshell::Server& shell)
        : adapter_(adapter), view_(view), notifications_(notifications), requestLog_(requests), shell_(shell) {}

    // Registers every command with the shell. Returns 0 or the shell's first negative result.
    int registerAll();

private:
    int terminals();
    int answers();
    int requests();
    int request();
    int notifications();
    int bundles();
    int stats();
    int handling();
    int tables();
    int runlog();
    int log();

    const tvservice::ModelTvServiceAdapter& adapter_;
    const TerminalView& view_;
    const NotificationLog& notifications_;
    RequestLog& requestLog_;
    appovshell::Server& shell_;
};

} // namespace control
