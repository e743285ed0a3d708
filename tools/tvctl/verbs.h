// All commands of tvctl itself.
#pragma once

#include "options.h"

#include <string>
#include <string_view>
#include <vector>

namespace tvctl {

// A command of tvctl itself; any other first word is a command of the target process. run takes the options before the
// verb and the arguments after it, and returns the exit code.
struct Verb {
    const char* name;
    const char* help; // for people, one line
    int (*run)(const Options& options, const std::vector<std::string>& arguments);
    bool configured = true; // whether it needs a valid configuration
    bool targeted = true;   // whether it uses the process that --target names
};

const std::vector<Verb>& verbs();
const Verb* findVerb(std::string_view name); // null when there is none

// Runs a verb. Returns the exit code.
int run(const Verb& verb, const Options& options, const std::vector<std::string>& arguments);

} // namespace tvctl
