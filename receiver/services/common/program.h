// What the service programs share: options, shell, startup and shutdown.
#pragma once

#include "common/fault-switches.h"
#include "common/shell-commands.h"
#include "common/terminal-table.h"

#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace CLI {
class App; // whose header takes seconds to compile
}

namespace services {

class Program {
public:
    // name: the name of the process and of its shell.
    Program(const std::string& name, const std::string& description);
    ~Program();

    // Adds a text option of this service; call it before parse. value must outlive parse.
    void addOption(const std::string& name, std::string& value, const std::string& help);
    // Returns the exit code when the program must end; errors have been printed on stderr.
    std::optional<int> parse(int argc, const char* const* argv);

    // Adds shell commands of this service; call it before run. add registers them and returns 0 or the error.
    void addCommands(std::function<int(appovshell::Server&)> add) { addCommands_ = std::move(add); }

    // Adds tables of this service to the shell's "stats tables"; call it before run.
    void addTables(std::function<std::vector<TableCount>()> count) { commands_.addTables(std::move(count)); }

    TerminalTable& table() { return table_; }
    FaultSwitches& faults() { return faults_; }

    // Offers the service by calling offer, serves until SIGTERM or SIGINT, and returns the exit code.
    int run(std::function<void()> offer);
    // Prints on stderr why the program fails.
    void reportError(const std::string& problem) const;

private:
    int start();
    // Prints why it fails, and returns the exit code.
    int failed(const std::exception& error) const;
    void startShell();
    std::string reportReady() const;

    std::string name_;
    const std::unique_ptr<CLI::App> options_;
    std::string logLevels_;
    int readyDescriptor_ = -1;

    TerminalTable table_;
    FaultSwitches faults_;
    ShellCommands commands_{table_, faults_};
    std::function<int(appovshell::Server&)> addCommands_;
    std::function<void()> offer_;
};

} // namespace services
