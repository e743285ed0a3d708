// Whether a process that does not answer runs at all.
#pragma once

#include <string>
#include <sys/types.h>

namespace tvctl {

// What is known of a process that does not answer, and what to do about it. 0 stands for one whose number is unknown
// because it is too busy to accept a connection.
struct Silence {
    std::string what;   // "process 4711 is stopped"
    std::string remedy; // "continue it with: kill -CONT 4711"
};
Silence silenceOf(pid_t process);

} // namespace tvctl
