// A debug shell without a socket: it keeps the registered commands and runs them for the test. It is registered as the
// process's shell until the process ends.
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

    // The registered instance of the process.
    static FakeShell& get() {
        static FakeShell& shell = *[] {
            auto* made = new FakeShell;
            made->attachProcess(*frame::Process::getInstance());
            made->registerInterface(static_cast<appovshell::Server*>(made), appovshell::Server::name());
            return made;
        }();
        return shell;
    }

    // Runs the command of this specification. Its output is in `printed` afterwards.
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
    int registrations = 0;                   // including rejected ones
    std::string printed;

private:
    std::string argument_;
};

} // namespace support
