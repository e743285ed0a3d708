// The options that tvctl and its own verbs share, and the parser of a verb's arguments.
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

// A command of tvctl itself; any other first word is a command of the target process. run takes the options before the
// verb and the arguments after it, and returns the exit code.
struct Verb {
    const char* name;
    const char* help; // for people, one line
    int (*run)(const Options& options, const std::vector<std::string>& arguments);
    bool configured = true; // whether it needs a valid configuration
};

// Adds the shared options to app, which stores their values in options. Both must outlive the parsing.
void addOptions(CLI::App& app, Options& options);

// Makes app escape unprintable characters in its error texts: the arguments may not be the reader's own.
void escapeFailures(CLI::App& app);

// Parses a verb's arguments. Returns the exit code when the verb must not run: they are invalid or ask for help, and
// the text has been printed.
std::optional<int> parseArguments(CLI::App& app, const std::vector<std::string>& arguments);

} // namespace tvctl
