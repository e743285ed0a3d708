// tvctl: sends commands to a receiver process through its debug shell.
#include "failure.h"
#include "interruption.h"
#include "options.h"
#include "session.h"
#include "verbs.h"

#include <host/configuration.h>
#include <host/printable.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <csignal>
#include <iostream>
#include <iterator>
#include <string>

namespace {

std::string footer() {
    std::string text = "Verbs of tvctl itself (see \"tvctl VERB --help\"):\n";
    for (const auto& verb : tvctl::verbs()) text += "  " + std::string(verb.name) + "  " + verb.help + "\n";
    return text +
           "\nExit codes: 0 done, 1 the command failed or something is wrong, 2 wrong usage, 3 no such process,\n"
           "4 timed out, 5 access denied, 6 malformed answer or configuration, 7 not shown: refused by the service or\n"
           "replaced by a newer request, 8 given up because a service did not answer, 130 interrupted";
}

} // namespace

int main(int argc, char** argv) {
    tvctl::endWhenInterrupted();
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
    // Everything from the verb on belongs to the command.
    app.prefix_command();
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return tvctl::exitCodeAfter(app, error);
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
    const auto* verb = tvctl::findVerb(words[0]);
    try {
        if (!verb || verb->configured) host::checkConfiguration();
        if (!options.quiet && !options.json)
            for (const auto& warning : host::configurationWarnings())
                std::cerr << "tvctl: warning: " << host::printable(warning) << '\n';
    } catch (const host::ConfigurationError& error) {
        return tvctl::report(std::cerr, options.json, {tvctl::exitBadData, -EBADMSG}, error.what());
    }
    if (verb) return tvctl::run(*verb, options, {std::next(words.begin()), words.end()});
    std::vector<std::string> arguments{std::next(words.begin()), words.end()};
    if (const auto exitCode = tvctl::takeOptions(arguments, options)) return *exitCode;
    arguments.insert(arguments.begin(), words[0]);
    return tvctl::Session(options).run(arguments);
}
