// Whether a process that does not answer runs at all.
#pragma once

#include <string>
#include <sys/types.h>

namespace tvctl {

// Whether a process has been stopped, by SIGSTOP, a terminal or a debugger; false when it cannot be told.
bool isStopped(pid_t process);

// What is known of a process that does not answer, and what to do about it.
struct Silence {
    std::string what;   // "process 4711 is stopped"
    std::string remedy; // "continue it with: kill -CONT 4711"
};
Silence silenceOf(pid_t process);

} // namespace tvctl
