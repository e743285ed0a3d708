// The commands by which a developer looks into a service and makes it misbehave.
#pragma once

#include "common/fault-switches.h"
#include "common/terminal-table.h"

#include <appovshell/server.h>

namespace services {

// Registers "terminals", "fault", "faults" and "stats" with a shell; must live as long as the shell serves.
class ShellCommands {
public:
    ShellCommands(const TerminalTable& table, FaultSwitches& faults) : table_(table), faults_(faults) {}

    // 0, or the negative result of the first registration that failed.
    int registerWith(appovshell::Server& shell);

    ShellCommands(const ShellCommands&) = delete;
    ShellCommands& operator=(const ShellCommands&) = delete;

private:
    template <int (ShellCommands::*command)()> static int call(void* context);

    int printTerminals();
    int setFault();
    int printFaults();
    int printStatistics();

    const TerminalTable& table_;
    FaultSwitches& faults_;
    appovshell::Server* shell_ = nullptr;
};

} // namespace services
