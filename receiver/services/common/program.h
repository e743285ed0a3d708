// What the programs of the services have in common: their options, their shell, their beginning and end.
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
    // name: the process's name, under which its shell is found too.
    Program(const std::string& name, const std::string& description);
    ~Program();

    // Adds an option of the service's own, with a text; value has to last until parse, which it comes before.
    void addOption(const std::string& name, std::string& value, const std::string& help);
    // Returns the exit code when the program ends here, what was wrong being on stderr.
    std::optional<int> parse(int argc, const char* const* argv);

    // Adds commands of the service's own to the shell, before run: add registers them and returns 0 or what registering
    // failed with.
    void addCommands(std::function<int(appovshell::Server&)> add) { addCommands_ = std::move(add); }

    // Lets the shell's "stats tables" tell of tables of the service's own, before run.
    void addTables(std::function<std::vector<TableCount>()> count) { commands_.addTables(std::move(count)); }

    TerminalTable& table() { return table_; }
    FaultSwitches& faults() { return faults_; }

    // Offers the service by calling offer, serves until SIGTERM or SIGINT, and returns the exit code.
    int run(std::function<void()> offer);
    // Says on stderr why the program fails.
    void complain(const std::string& problem) const;

private:
    int start();
    // Says why it fails, and returns the exit code for that.
    int failed(const std::exception& error) const;
    void startShell();
    std::string tellReady() const;

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
