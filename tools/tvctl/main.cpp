// tvctl: gives commands to a receiver process through its debug shell.
#include "config.h"
#include "doctor.h"
#include "failure.h"
#include "interactive.h"
#include "keygen.h"
#include "options.h"
#include "schema.h"
#include "session.h"
#include "watch.h"

#include <host/configuration.h>
#include <host/printable.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <iostream>
#include <iterator>
#include <string>
#include <unistd.h>

namespace {

constexpr tvctl::Verb verbs[] = {
    {"shell", "takes the process's commands line by line", tvctl::runShell},
    {"watch", "prints what the process's clients are told, as it comes", tvctl::runWatch},
    {"schema", "prints all messages and records with their layout", tvctl::runSchema},
    {"config", "prints what a process started here is configured with, and where that is from", tvctl::runConfig},
    {"keygen", "makes the pair of keys by which other hosts know this one", tvctl::runKeygen, false},
    {"doctor", "finds what is wrong with what a receiver meets here, and who may come in where", tvctl::runDoctor,
     false},
};

// Nothing is left to tidy up: the line editor resets the terminal before it lets the signal through.
void endInterrupted(int) { _exit(tvctl::exitInterrupted); }

std::string footer() {
    std::string text = "Verbs of tvctl itself (\"tvctl VERB --help\" says more):\n";
    for (const auto& verb : verbs) text += "  " + std::string(verb.name) + "  " + verb.help + "\n";
    return text +
           "\nExit codes: 0 done, 1 the command failed or something is wrong, 2 wrong usage, 3 no such process,\n"
           "4 timed out, 5 refused, 6 malformed answer or configuration, 130 interrupted";
}

} // namespace

int main(int argc, char** argv) {
    std::signal(SIGINT, endInterrupted);
    std::signal(SIGPIPE, SIG_IGN);

    tvctl::Options options;
    CLI::App app(
        "tvctl [OPTIONS] VERB [ARGS...]\n\n"
        "Gives a command to a receiver process. The verb \"help\" lists the commands of the process.",
        "tvctl");
    tvctl::addOptions(app, options);
    tvctl::escapeFailures(app);
    app.set_version_flag("--version", "tvctl " TVCTL_VERSION);
    app.footer(footer());
    // Everything from the verb on is the command's, dashes included.
    app.prefix_command();
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? tvctl::exitDone : tvctl::exitUsage;
    }

    const auto words = app.remaining();
    if (words.empty()) {
        std::cerr << app.help();
        return tvctl::exitUsage;
    }
    // The parser leaves options that it does not know to the command, but they came before the verb.
    if (words[0].rfind('-', 0) == 0) {
        std::cerr << "tvctl: unknown option: " << host::printable(words[0]) << " (--help lists them)\n";
        return tvctl::exitUsage;
    }
    const auto* verb =
        std::find_if(std::begin(verbs), std::end(verbs), [&](const auto& known) { return words[0] == known.name; });
    try {
        if (verb == std::end(verbs) || verb->configured) host::checkConfiguration();
    } catch (const host::ConfigurationError& error) {
        return tvctl::report(std::cerr, options.json, {tvctl::exitBadData, -EBADMSG}, error.what());
    }
    if (verb != std::end(verbs)) return verb->run(options, {std::next(words.begin()), words.end()});
    return tvctl::Session(options).run(words);
}
