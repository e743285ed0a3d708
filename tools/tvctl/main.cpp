// tvctl: sends commands to a receiver process through its debug shell.
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
    {"shell", "runs the process's commands line by line", tvctl::runShell},
    {"watch", "prints the notifications to the process's clients as they arrive", tvctl::runWatch},
    {"schema", "prints all messages and records with their layout", tvctl::runSchema},
    {"config", "prints the settings of a process started here, and where they come from", tvctl::runConfig},
    {"keygen", "makes the key pair that identifies this host to others", tvctl::runKeygen, false},
    {"doctor", "finds problems of a receiver on this host, and lists who may connect where", tvctl::runDoctor, false},
};

// Needs no cleanup: the line editor resets the terminal before it passes the signal on.
void endInterrupted(int) { _exit(tvctl::exitInterrupted); }

std::string footer() {
    std::string text = "Verbs of tvctl itself (see \"tvctl VERB --help\"):\n";
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
        "Sends a command to a receiver process. The verb \"help\" lists the commands of the process.",
        "tvctl");
    tvctl::addOptions(app, options);
    tvctl::escapeFailures(app);
    app.set_version_flag("--version", "tvctl " TVCTL_VERSION);
    app.footer(footer());
    // Everything from the verb on belongs to the command, options included.
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
    // The parser leaves unknown options to the command, but this one precedes the verb.
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
