// One of the receiver's services, in a process of its own.
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
    // emulator: the words before the program's path, none for a program of this machine. folder: where its sockets are
    // to be. Throws std::runtime_error when it does not come up.
    Service(const std::filesystem::path& program, const std::vector<std::string>& emulator,
            const std::filesystem::path& folder);

    // What a command of its shell answers, with --json; throws std::runtime_error when it is refused.
    std::string ask(const std::vector<std::string>& words);
    // Lets the TV service send a notification.
    void emit(const std::string& notification, const std::string& arguments) { ask({"emit", notification, arguments}); }
    // What its terminals show, but for when that began.
    std::string terminals();
    // Ends it; returns what was not as it should be, or an empty text.
    std::string end();

private:
    const std::string name_;
    host::ShellClient shell_;
    std::unique_ptr<receiver::ChildProcess> process_;
};

} // namespace exchange
