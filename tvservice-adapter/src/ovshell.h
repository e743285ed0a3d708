// The debug command "pathswitch": switches what the main screens show. It takes the same path as the requests of
// applications.
#pragma once

namespace appovshell {
class Server;
}

namespace tvservice {

class ModelTvServiceAdapter;

// The command's registrar. The adapter makes one per process, when it first starts.
class ovRegister {
public:
    // Registers the command. Ends the process when no debug shell is available.
    explicit ovRegister(ModelTvServiceAdapter* adapter);
    ~ovRegister(); // the command stays registered

    // Runs the command, on the shell's thread: "hdmi" shows the HDMI input 0, "mm" the external source, any other
    // argument nothing. Prints its argument.
    void pathswitch();

    ovRegister(const ovRegister&) = delete;
    ovRegister& operator=(const ovRegister&) = delete;

private:
    int registerCommand();
    // The process's debug shell, which is started if it is not running yet; null when that fails.
    appovshell::Server* svcAppovshell() const;

    ModelTvServiceAdapter* adapter;
};

// The file that marks a receiver under development: there, a missing debug shell stops the process for the debugger.
extern const char* const debugVersionFile;

} // namespace tvservice
