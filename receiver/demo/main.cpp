// tvsa-demo: runs a whole receiver, shows and checks the play path on it, or gives a shell on it.
#include "demonstration.h"
#include "screen.h"

#include <host/configuration.h>
#include <host/printable.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <exception>
#include <iostream>

namespace {

enum ExitCode { success = 0, failure = 1, usage = 2, badData = 6, interruptedRun = 130 };

volatile std::sig_atomic_t stopRequested = 0;

void requestStop(int) { stopRequested = 1; }

// Runs a shell on the receiver until the user exits. A failing command does not stop the receiver.
int runShell(receiver::ReceiverKit& kit, const receiver::Places& places) {
    std::cout << "The receiver is up. RUNTIME_DIRECTORY=" << kit.runtimeFolder().string() << std::endl;
    std::signal(SIGINT, SIG_IGN); // Ctrl-C is for the shell
    receiver::ChildProcess shell(
        {places.programs / "tvctl",
         {"shell"},
         {{"RUNTIME_DIRECTORY", kit.runtimeFolder().string()}, {"STATE_DIRECTORY", (kit.folder() / "state").string()}},
         {}});
    shell.wait();
    return shell.exitCode().value_or(failure);
}

int run(const receiver::Places& places, bool withShell) {
    const demo::Screen screen;
    receiver::ReceiverKit kit(places, [] { return stopRequested != 0; });
    try {
        kit.start();
        if (withShell) {
            const int result = runShell(kit, places);
            const std::string problems = kit.stop();
            std::cerr << problems;
            return problems.empty() ? result : failure;
        }
        demo::Demonstration(kit, screen).run();
        if (const std::string problems = kit.stop(); !problems.empty()) throw receiver::ReceiverError(problems);
        screen.title("Everything was as expected.");
        return success;
    } catch (const std::exception& error) {
        std::cout << std::flush;
        if (stopRequested != 0) {
            std::cerr << "tvsa-demo: interrupted\n";
            return interruptedRun;
        }
        std::cerr << "\ntvsa-demo: " << error.what() << "\n\n" << kit.logTails(20);
        return failure;
    }
}

} // namespace

int main(int argc, char** argv) {
    receiver::Places places;
    bool withShell = false;
    CLI::App app{"Runs a whole receiver in a private folder and shows the play path on it, checking every step."};
    app.add_option("--bin", places.programs, "The folder of the programs")->check(CLI::ExistingDirectory);
    app.add_option("--lib", places.libraries, "The folder of the application libraries")->check(CLI::ExistingDirectory);
    app.add_flag("--shell", withShell, "Give a shell on the receiver instead of the demonstration");
    app.footer(
        "Exit codes: 0 everything was as expected, 1 something was not, 2 wrong usage, 6 malformed configuration,\n"
        "130 interrupted");
    app.failure_message([](const CLI::App* failed, const CLI::Error& error) {
        return host::printable(CLI::FailureMessage::simple(failed, error), "\n");
    });
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? success : usage;
    }
    std::signal(SIGINT, requestStop);
    std::signal(SIGTERM, requestStop);
    std::signal(SIGHUP, requestStop);
    try {
        host::checkConfiguration();
        return run(places, withShell);
    } catch (const host::ConfigurationError& error) {
        std::cerr << "tvsa-demo: " << host::printable(error.what(), "\n") << '\n';
        return badData;
    } catch (const std::exception& error) {
        std::cerr << "tvsa-demo: " << host::printable(error.what(), "\n") << '\n';
        return failure;
    }
}
