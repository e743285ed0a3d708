// The shell commands that look and listen: "snapshot" and "level".
#pragma once

#include <appovshell/server.h>

#include <media/engine.h>
#include <string>

namespace media {

class Commands {
public:
    explicit Commands(const Engine& engine) : engine_(engine) {}
    // Registers the commands. It and the engine must live as long as the shell serves. Returns 0, or the negative
    // result of the registration.
    int registerWith(appovshell::Server& shell);

    Commands(const Commands&) = delete;
    Commands& operator=(const Commands&) = delete;

private:
    int printSnapshot();
    int printLevel();
    template <class Answer> int answer(const Answer& answer);

    const Engine& engine_;
    appovshell::Server* shell_ = nullptr;
    std::string picture_; // of the last "snapshot"
};

} // namespace media
