// The control application's shell commands: the receiver's remote control, and a look at what it is doing.
//
// Each prints lines for people, or JSON when the shell was asked for it.
#pragma once

#include "terminal-view.h"

#include <appovshell/server.h>
#include <tvservice-adapter/model-tvservice-adapter.h>

namespace control {

// Lives as long as the process: the shell keeps pointers to it.
class Commands {
public:
    Commands(tvservice::ModelTvServiceAdapter& adapter, const TerminalView& view, appovshell::Server& shell)
        : adapter_(adapter), view_(view), shell_(shell) {}

    // Registers every command with the shell: 0, or the shell's first negative result.
    int registerAll();

private:
    int play();
    int stop();
    int terminals();
    int answers();
    int bundles();
    int stats();
    int runlog();
    int log();

    int submit(const std::string& uri, const std::string& uuid);
    int refuse(const std::string& why);

    tvservice::ModelTvServiceAdapter& adapter_;
    const TerminalView& view_;
    appovshell::Server& shell_;
};

} // namespace control
