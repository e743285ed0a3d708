// The process's debug shell, without a socket.
#pragma once

#include <appovshell/server.h>
#include <frame/abstract-application.h>

#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace tvtest {

// From one thread at a time.
class Shell : public frame::AbstractApplication, public appovshell::Server {
public:
    std::string run(const std::string& name, const std::vector<std::string>& arguments) {
        const auto found = commands_.find(name);
        if (found == commands_.end())
            throw std::invalid_argument("nothing has registered the shell command \"" + name + '"');
        arguments_ = arguments;
        output_.clear();
        found->second.handler(found->second.context);
        return output_;
    }

    int registerCommand(const std::string& specification, const std::string&, appovshell::CommandHandler handler,
                        void* context) override {
        const std::string name = specification.substr(0, specification.find(' '));
        if (name.empty() || handler == nullptr) return -22;
        return commands_.insert({name, {handler, context}}).second ? 0 : -17;
    }
    std::string getArgument(unsigned index) override {
        return index < arguments_.size() ? arguments_[index] : std::string();
    }
    void print(const std::string& text) override { output_ += text; }
    bool wantsJson() override { return false; }

private:
    int performSetupDone() override {
        return registerInterface(static_cast<appovshell::Server*>(this), appovshell::Server::name());
    }

    struct Command {
        appovshell::CommandHandler handler;
        void* context;
    };
    std::map<std::string, Command> commands_;
    std::vector<std::string> arguments_;
    std::string output_;
};

} // namespace tvtest
