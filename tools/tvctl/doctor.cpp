#include "doctor.h"

#include "doctor/examination.h"
#include "doctor/report.h"
#include "failure.h"
#include "quiet-log.h"

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <iostream>
#include <unistd.h>

namespace tvctl {
namespace {

bool wantsColour() {
    const char* const noColour = std::getenv("NO_COLOR");
    return isatty(STDOUT_FILENO) == 1 && (noColour == nullptr || *noColour == '\0');
}

int print(const doctor::Diagnosis& diagnosis, const Options& options) {
    std::cout << (options.json ? doctor::asJson(diagnosis) : doctor::asText(diagnosis, {wantsColour(), options.quiet}));
    if (const int exitCode = finish(std::cout, std::cerr, options.json); exitCode != exitDone) return exitCode;
    return doctor::countOf(diagnosis, doctor::Severity::wrong) == 0 ? exitDone : exitFailed;
}

} // namespace

int runDoctor(const Options& given, const std::vector<std::string>& arguments) {
    Options options = given;
    CLI::App app(
        "Examines what a receiver started here would use, and what runs: configuration, folders, sockets, services "
        "and\n"
        "their messages, keys, shells, limits and the run log. Lists who may connect where. Changes nothing.",
        "tvctl doctor");
    addOptions(app, options);
    app.remove_option(app.get_option("--target")); // it examines all processes
    app.footer("Exit codes: 0 nothing is wrong, though there may be warnings; 1 something is wrong.");
    if (const auto exitCode = parseArguments(app, arguments)) return *exitCode;
    const QuietLog quiet;
    const auto examination = doctor::examine(options.timeoutOr(answerTimeout));
    const int exitCode = print(examination.diagnosis, options);
    // A check that still runs uses objects that a normal exit would destroy.
    if (examination.stuck) std::_Exit(exitCode);
    return exitCode;
}

} // namespace tvctl
