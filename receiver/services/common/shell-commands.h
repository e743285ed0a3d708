// The commands by which a developer looks into a service and makes it misbehave.
#pragma once

#include "common/fault-switches.h"
#include "common/terminal-table.h"

#include <appovshell/server.h>

#include <functional>
#include <utility>
#include <vector>

namespace services {

// Registers "terminals", "fault", "faults" and "stats" with a shell; must live as long as the shell serves.
class ShellCommands {
public:
    ShellCommands(const TerminalTable& table, FaultSwitches& faults) : table_(table), faults_(faults) {}

    // Lets "stats tables" tell of a service's own tables besides the terminals; before the shell serves. count is
    // called on the shell's thread.
    void addTables(std::function<std::vector<TableCount>()> count) { moreTables_ = std::move(count); }

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
    int printTables();

    const TerminalTable& table_;
    FaultSwitches& faults_;
    std::function<std::vector<TableCount>()> moreTables_;
    appovshell::Server* shell_ = nullptr;
};

} // namespace services
