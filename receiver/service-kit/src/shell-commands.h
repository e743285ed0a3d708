// The shell commands that inspect a service and inject faults.
#pragma once

#include <appovshell/server.h>
#include <tvservice-adapter/service/fault-switches.h>
#include <tvservice-adapter/service/terminal-table.h>

#include <functional>
#include <utility>
#include <vector>

namespace services {

// Registers "terminals", "failures", "fault", "faults", "health", "log" and "stats" with a shell; must live as long as
// the shell serves.
class ShellCommands {
public:
    ShellCommands(const TerminalTable& table, FaultSwitches& faults) : table_(table), faults_(faults) {}

    // Adds tables of a service to "stats tables", besides the terminals; call it before the shell serves. count is
    // called on the shell's thread.
    void addTables(std::function<std::vector<TableCount>()> count) { serviceTables_ = std::move(count); }

    // Returns 0, or the negative result of the first registration that failed.
    int registerWith(appovshell::Server& shell);

    ShellCommands(const ShellCommands&) = delete;
    ShellCommands& operator=(const ShellCommands&) = delete;

private:
    template <int (ShellCommands::*command)()> static int call(void* context);

    int printTerminals();
    int setFault();
    int printFaults();
    int printFailures();
    int printHealth();
    int setLogLevels();
    int printStatistics();
    int printTables();

    const TerminalTable& table_;
    FaultSwitches& faults_;
    std::function<std::vector<TableCount>()> serviceTables_;
    appovshell::Server* shell_ = nullptr;
};

} // namespace services
