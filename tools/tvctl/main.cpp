// tvctl: gives commands to a receiver process through its debug shell.
#include "interactive.h"
#include "session.h"

#include <CLI/CLI.hpp>
#include <chrono>
#include <csignal>
#include <iostream>
#include <string>
#include <unistd.h>

namespace {

// Nothing is left to tidy up: the line editor resets the terminal before it lets the signal through.
void endInterrupted(int) { _exit(tvctl::exitInterrupted); }

} // namespace

int main(int argc, char** argv) {
    std::signal(SIGINT, endInterrupted);
    std::signal(SIGPIPE, SIG_IGN);

    tvctl::Options options;
    double seconds = 10;
    CLI::App app(
        "tvctl [OPTIONS] VERB [ARGS...]\n\n"
        "Gives a command to a receiver process. The verb \"help\" lists the commands of the process, \"shell\" takes\n"
        "them line by line.",
        "tvctl");
    app.add_option("--target", options.target, "The process to talk to")->capture_default_str();
    app.add_flag("--json", options.json, "Print the outcome as JSON");
    app.add_flag("--quiet", options.quiet, "Print errors only");
    app.add_option("--timeout", seconds, "Seconds to wait for an answer")
        ->capture_default_str()
        ->check(CLI::Range(0.001, 86400.0));
    app.set_version_flag("--version", "tvctl " TVCTL_VERSION);
    app.footer(
        "Exit codes: 0 done, 1 the command failed, 2 wrong usage, 3 no such process, 4 timed out,\n"
        "5 refused, 6 malformed answer, 130 interrupted");
    // Everything from the verb on is the command's, dashes included.
    app.prefix_command();
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? tvctl::exitDone : tvctl::exitUsage;
    }
    options.timeout = std::chrono::milliseconds(static_cast<long>(seconds * 1000));

    const auto words = app.remaining();
    if (words.empty()) {
        std::cerr << app.help();
        return tvctl::exitUsage;
    }
    // The parser leaves options that it does not know to the command, but they came before the verb.
    if (words[0].rfind('-', 0) == 0) {
        std::cerr << "tvctl: unknown option: " << words[0] << " (--help lists them)\n";
        return tvctl::exitUsage;
    }
    tvctl::Session session(options);
    if (words.size() == 1 && words[0] == "shell") return tvctl::runInteractive(session, options);
    return session.run(words);
}
