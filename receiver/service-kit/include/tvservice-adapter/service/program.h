// The program of a service: command line, configuration, log, debug shell, start and end.
//
// It has the options --log, --fault, --ready-fd, --help and --version, and the shell commands "terminals", "failures",
// "fault", "faults", "health", "log" and "stats" (docs/tvctl.md). It reads the receiver's configuration, and serves
// until SIGTERM or SIGINT. One object per process, on the main thread.
//
// A unit of systemd may have Type=notify and WatchdogSec: it tells systemd when it serves and when it ends, and gives
// signs of life while the main thread and the one that runs the handlers take turns. The status names a message whose
// handler hangs.
#pragma once

#include <appovshell/server.h>
#include <tvservice-adapter/service/exit-code.h>
#include <tvservice-adapter/service/fault-switches.h>
#include <tvservice-adapter/service/service.h>
#include <tvservice-adapter/service/terminal-table.h>

#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace CLI {
class App; // whose header takes seconds to compile
}

namespace services {

class ShellCommands;

class Program {
public:
    // name: the name of the process and of its shell, "tvctl --target NAME". version: for --version; by default that of
    // the kit.
    Program(const std::string& name, const std::string& description, const std::string& version = {});
    ~Program();

    // Adds a text option of this service; call it before parse. value must outlive parse.
    void addOption(const std::string& name, std::string& value, const std::string& help);

    // Parses the command line, calls serve, which ends with run, and returns the exit code. Exceptions and errors are
    // printed on stderr.
    int main(int argc, const char* const* argv, const std::function<int()>& serve);
    // The first part of main, for programs that do more between the two. Returns the exit code when the program must
    // end; errors have been printed on stderr.
    std::optional<int> parse(int argc, const char* const* argv);

    // Adds shell commands of this service; call it before run. add registers them and returns 0 or the error.
    void addCommands(std::function<int(appovshell::Server&)> add) { addCommands_ = std::move(add); }

    // What the terminals show and which faults are switched on: one of each, for the service and for the shell.
    TerminalTable& table() { return table_; }
    FaultSwitches& faults() { return faults_; }

    // Offers the service, serves until SIGTERM or SIGINT, and returns the exit code. service must outlive it.
    int run(Service& service);
    // Prints on stderr why the program fails.
    void reportError(const std::string& problem) const;

    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

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
    const std::unique_ptr<ShellCommands> commands_;
    std::function<int(appovshell::Server&)> addCommands_;
    Service* service_ = nullptr;
};

} // namespace services
