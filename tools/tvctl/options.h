// The options that tvctl and its own verbs share, and the parser of a verb's arguments.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App; // whose header takes seconds to compile
class ParseError;
} // namespace CLI

namespace tvctl {

enum ExitCode {
    exitDone = 0,
    exitFailed = 1,
    exitUsage = 2,
    exitNotAvailable = 3,
    exitTimedOut = 4,
    exitRefused = 5,
    exitBadData = 6,
    exitNotShown = 7,
    exitGivenUp = 8,
    exitInterrupted = 130,
};

struct Options {
    std::string target = "frame-host";
    bool targetGiven = false; // --target
    bool inShell = false;     // tvctl shell runs the command
    bool json = false;
    bool quiet = false;
    std::optional<std::chrono::milliseconds> timeout; // --timeout

    std::chrono::milliseconds timeoutOr(std::chrono::milliseconds otherwise) const {
        return timeout.value_or(otherwise);
    }
};

// How long to wait for an answer without --timeout. A process answers within milliseconds, or hangs. What makes it do
// something waits for longer: the command may still be carried out after the waiting.
inline constexpr std::chrono::milliseconds answerTimeout{800}, actionTimeout{10'000};

// Adds the shared options to app, which stores their values in options. Both must outlive the parsing.
// shownTimeout: what the help says of the time that passes without --timeout.
void addOptions(CLI::App& app, Options& options, const char* shownTimeout = "0.8");
inline constexpr const char* noTimeout = "no limit";

// Prints what the parser has to say: its help, or what is wrong. Returns the exit code of tvctl.
int exitCodeAfter(const CLI::App& app, const CLI::ParseError& error);

// Makes app escape unprintable characters in its error texts: the arguments may not be the reader's own.
void escapeFailures(CLI::App& app);

// Parses a verb's arguments. Returns the exit code when the verb must not run: they are invalid or ask for help, and
// the text has been printed.
std::optional<int> parseArguments(CLI::App& app, const std::vector<std::string>& arguments);

// Takes the shared options out of the arguments of a process's command, up to an argument "--", which it takes, too.
// Arguments that look like other options stay. Returns the exit code when they are wrong.
std::optional<int> takeOptions(std::vector<std::string>& arguments, Options& options);

} // namespace tvctl
