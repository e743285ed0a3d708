// One of the receiver's services, in its own process.
#pragma once

#include <host/shell-client.h>

#include <filesystem>
#include <kit/child-process.h>
#include <memory>
#include <string>
#include <vector>

namespace exchange {

class Service {
public:
    // emulator: the command before the program's path, empty for a program of this machine. folder: for its sockets.
    // Throws std::runtime_error if the service does not start.
    Service(const std::filesystem::path& program, const std::vector<std::string>& emulator,
            const std::filesystem::path& folder);

    // Runs a command of its shell and returns the output as JSON; throws std::runtime_error if the command fails.
    std::string ask(const std::vector<std::string>& words);
    // Makes the TV service send a notification.
    void emit(const std::string& notification, const std::string& arguments) { ask({"emit", notification, arguments}); }
    // What its terminals show, without the start times.
    std::string terminals();
    // Ends it and returns the problems, or an empty text.
    std::string end();

private:
    const std::string name_;
    host::ShellClient shell_;
    std::unique_ptr<receiver::ChildProcess> process_;
};

} // namespace exchange
