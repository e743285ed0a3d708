// Registers a group of shell commands from a table of member functions.
#pragma once

#include <appovshell/server.h>

namespace control {

struct Command {
    const char* specification;
    const char* help;
    appovshell::CommandHandler handler;
};

// The handler that calls a member function of the group that was registered as the context.
template <class Group, int (Group::*method)()> int call(void* group) { return (static_cast<Group*>(group)->*method)(); }

// Registers all of them. Returns 0 or the shell's first negative result.
template <class Table, class Group> int registerCommands(appovshell::Server& shell, const Table& table, Group& group) {
    for (const Command& command : table)
        if (const int result = shell.registerCommand(command.specification, command.help, command.handler, &group);
            result < 0)
            return result;
    return 0;
}

} // namespace control
