// The command by which a developer lets the TV service tell its clients anything.
#pragma once

#include "common/sender.h"

#include <appovshell/server.h>

#include <cstddef>
#include <string>

namespace services {

class EmitCommand {
public:
    // What JSON this long says is refused: arguments are given by people.
    static constexpr std::size_t jsonLimit = 4096;

    explicit EmitCommand(const Sender& sender) : sender_(sender) {}

    // Registers "emit" with a shell; must live as long as the shell serves, the sender being of an offered service. 0,
    // or the negative result of the registration.
    int registerWith(appovshell::Server& shell);

    EmitCommand(const EmitCommand&) = delete;
    EmitCommand& operator=(const EmitCommand&) = delete;

private:
    int emit();
    int fail(int result, const std::string& problem);

    const Sender& sender_;
    appovshell::Server* shell_ = nullptr;
};

// The arguments, as JSON, that emit sends for a notification when none are given; null for a name that is none.
const char* sampleOf(const std::string& notification);

} // namespace services
