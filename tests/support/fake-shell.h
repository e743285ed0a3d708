// A debug shell without a socket: keeps the commands that are registered and runs them for the test. It takes the
// shell's place in the process's interface registry for the life of the process.
#pragma once

#include <appovshell/server.h>
#include <frame/abstract-application.h>
#include <frame/process.h>

#include <map>
#include <string>
#include <utility>

namespace support {

class FakeShell : public frame::AbstractApplication, public appovshell::Server {
public:
    struct Command {
        std::string help;
        appovshell::CommandHandler handler;
        void* context;
    };

    // The process's one, registered.
    static FakeShell& get() {
        static FakeShell& shell = *[] {
            auto* made = new FakeShell;
            made->attachProcess(*frame::Process::getInstance());
            made->registerInterface(static_cast<appovshell::Server*>(made), appovshell::Server::name());
            return made;
        }();
        return shell;
    }

    // Runs the command of this specification; what it printed is in `printed` afterwards.
    int run(const std::string& specification, std::string argument) {
        argument_ = std::move(argument);
        printed.clear();
        const Command& command = commands.at(specification);
        return command.handler(command.context);
    }

    int registerCommand(const std::string& specification, const std::string& help, appovshell::CommandHandler handler,
                        void* context) override {
        ++registrations;
        return commands.insert({specification, {help, handler, context}}).second ? 0 : -17;
    }
    std::string getArgument(unsigned index) override { return index == 0 ? argument_ : std::string(); }
    void print(const std::string& text) override { printed += text; }
    bool wantsJson() override { return false; }

    std::map<std::string, Command> commands; // by specification
    int registrations = 0;                   // also those that were refused
    std::string printed;

private:
    std::string argument_;
};

} // namespace support
