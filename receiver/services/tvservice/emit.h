// The shell command that makes the TV service send any notification.
#pragma once

#include <appovshell/server.h>
#include <tvservice-adapter/service/sender.h>

#include <cstddef>
#include <string>

namespace services {

class EmitCommand {
public:
    // JSON of this length or more is rejected: people type the arguments.
    static constexpr std::size_t jsonLimit = 4096;

    explicit EmitCommand(const Sender& sender) : sender_(sender) {}

    // Registers "emit" with a shell. Must live as long as the shell serves; the sender's service must be offered.
    // Returns 0, or the negative result of the registration.
    int registerWith(appovshell::Server& shell);

    EmitCommand(const EmitCommand&) = delete;
    EmitCommand& operator=(const EmitCommand&) = delete;

private:
    int emit();
    int fail(int result, const std::string& problem);

    const Sender& sender_;
    appovshell::Server* shell_ = nullptr;
};

// The arguments, as JSON, that emit sends by default for a notification; null for an unknown name.
const char* sampleOf(const std::string& notification);

} // namespace services
