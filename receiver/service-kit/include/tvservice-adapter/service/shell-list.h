// Lists in the output of shell commands. For this header a program also needs nlohmann's JSON library.
#pragma once

#include <appovshell/server.h>

#include <nlohmann/json_fwd.hpp>

namespace services {

// Prints a list of objects as one line of JSON, or as a line for people per object. On the shell's thread, inside a
// command.
void printList(appovshell::Server& shell, const nlohmann::ordered_json& list);

} // namespace services
