// The options that tvctl and its own verbs share, and reading a verb's arguments.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App; // whose header takes seconds to compile
}

namespace tvctl {

enum ExitCode {
    exitDone = 0,
    exitFailed = 1,
    exitUsage = 2,
    exitNotAvailable = 3,
    exitTimedOut = 4,
    exitRefused = 5,
    exitBadData = 6,
    exitInterrupted = 130,
};

struct Options {
    std::string target = "frame-host";
    bool json = false;
    bool quiet = false;
    std::chrono::milliseconds timeout = std::chrono::seconds(10);
    bool timeoutGiven = false;
};

// Something that tvctl does itself; any other first word is a command of the process that it talks to. run takes the
// options that stood before the verb and what stood behind it, and returns the exit code.
struct Verb {
    const char* name;
    const char* help; // for people, one line
    int (*run)(const Options& options, const std::vector<std::string>& arguments);
    bool configured = true; // whether it refuses to run over a wrong configuration
};

// Lets app take the options that fill in options; both have to last until app has parsed.
void addOptions(CLI::App& app, Options& options);

// Has app say what is wrong with its arguments in printable text: who wrote them is not always who reads it.
void escapeFailures(CLI::App& app);

// Reads a verb's arguments. Returns the exit code when there is nothing left to do: they are wrong, or help was wanted,
// and that has been said.
std::optional<int> parseArguments(CLI::App& app, const std::vector<std::string>& arguments);

} // namespace tvctl
