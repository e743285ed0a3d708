// tvsa-demo: runs a whole receiver, shows and checks the play path on it, or gives a shell on it.
#include "broadcasts.h"
#include "demonstration.h"
#include "screen.h"
#include "sheet.h"

#include <host/configuration.h>
#include <host/printable.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <iostream>
#include <memory>
#include <string>

namespace {

enum ExitCode { success = 0, failure = 1, usage = 2, badData = 6, interruptedRun = 130 };

volatile std::sig_atomic_t stopRequested = 0;

void requestStop(int) { stopRequested = 1; }

struct Options {
    receiver::Places places;
    bool withShell = false, withDetails = false, withWindows = false, onWholeScreen = false, simulated = false;
    std::filesystem::path sheet = "tvsa-demonstration.html";
};

bool isSet(const char* variable) {
    const char* const value = std::getenv(variable);
    return value != nullptr && *value != '\0';
}

// Starts what the receiver receives, and makes it receive that. Without broadcasts, the media engine is simulated.
std::unique_ptr<demo::Broadcasts> broadcastFor(receiver::ReceiverKit& kit, const Options& options,
                                               const demo::Screen& screen) {
    if (options.simulated) return nullptr;
    try {
        auto broadcasts = std::make_unique<demo::Broadcasts>(kit, options.places);
        const bool hasDisplay = isSet("DISPLAY") || isSet("WAYLAND_DISPLAY");
        const bool isSeen = options.withWindows || options.onWholeScreen;
        if (isSeen && !hasDisplay) screen.note("No windows: neither DISPLAY nor WAYLAND_DISPLAY is set.");
        kit.setVariable("TVSA_MEDIA_ENGINE", "gstreamer");
        kit.setVariable("TVSA_MEDIA_OUTPUT", !isSeen || !hasDisplay  ? "none"
                                             : options.onWholeScreen ? "fullscreen"
                                                                     : "auto");
        kit.setChannels(broadcasts->channels());
        return broadcasts;
    } catch (const demo::NoBroadcasts& reason) {
        screen.note("Without pictures, with the simulated media engine: " + host::printable(reason.what()));
        return nullptr;
    }
}

// Runs a shell on the receiver until the user exits. A failing command does not stop the receiver.
int runShell(receiver::ReceiverKit& kit, const receiver::Places& places, demo::Broadcasts* broadcasts) {
    if (broadcasts) {
        broadcasts->waitForFilm();
        broadcasts->waitForSecond();
        std::cout << "It receives the channels of the command tvctl --target tvserviced channels, and has a film: "
                  << broadcasts->film() << '\n';
    }
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

int run(const Options& options) {
    const auto start = std::chrono::steady_clock::now();
    const demo::Screen screen(options.withDetails);
    receiver::ReceiverKit kit(options.places, [] { return stopRequested != 0; });
    std::unique_ptr<demo::Broadcasts> broadcasts;
    try {
        broadcasts = broadcastFor(kit, options, screen);
        if (broadcasts && !options.withShell) demo::checkWritable(options.sheet);
        kit.start();
        if (options.withShell) {
            const int result = runShell(kit, options.places, broadcasts.get());
            const std::string problems = kit.stop();
            std::cerr << problems;
            return problems.empty() ? result : failure;
        }
        demo::Demonstration demonstration(kit, screen, broadcasts.get());
        demonstration.run();
        if (const std::string problems = kit.stop(); !problems.empty()) throw receiver::ReceiverError(problems);
        const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;
        char text[64];
        std::snprintf(text, sizeof text, "Everything was as expected, in %.1f s.", time.count());
        screen.title(text);
        if (broadcasts) {
            demo::write(options.sheet, demo::sheetOf(demonstration.steps()));
            screen.note("Pictures of each step: " + std::filesystem::absolute(options.sheet).string());
        }
        return success;
    } catch (const std::exception& error) {
        std::cout << std::flush;
        if (stopRequested != 0) {
            std::cerr << "tvsa-demo: interrupted\n";
            return interruptedRun;
        }
        std::cerr << "\ntvsa-demo: " << error.what() << "\n\n" << kit.logTails(20);
        if (broadcasts) std::cerr << broadcasts->problem() << '\n';
        return failure;
    }
}

} // namespace

int main(int argc, char** argv) {
    Options options;
    CLI::App app{
        "Runs a whole receiver in a private folder and shows the play path on it, checking every step. Where the "
        "media\n"
        "engine on GStreamer is there, the receiver shows real broadcasts, and the last line names a page of "
        "pictures."};
    app.add_option("--bin", options.places.programs, "The folder of the programs")->check(CLI::ExistingDirectory);
    app.add_option("--lib", options.places.libraries, "The folder of the libraries")->check(CLI::ExistingDirectory);
    app.add_flag("--shell", options.withShell, "Give a shell on the receiver instead of the demonstration");
    app.add_flag("--verbose", options.withDetails,
                 "Also show what the resource manager did, and the notifications with their contents");
    app.add_flag("--window", options.withWindows, "Show the pictures in windows");
    app.add_flag("--fullscreen", options.onWholeScreen,
                 "Show them on the whole screen, those of other terminals as small pictures in the main one's");
    app.add_flag("--simulated", options.simulated, "Use the simulated media engine, without pictures");
    app.add_option("--sheet", options.sheet, "The HTML page to write, with the pictures of each step")
        ->capture_default_str();
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
        return run(options);
    } catch (const host::ConfigurationError& error) {
        std::cerr << "tvsa-demo: " << host::printable(error.what(), "\n") << '\n';
        return badData;
    } catch (const std::exception& error) {
        std::cerr << "tvsa-demo: " << host::printable(error.what(), "\n") << '\n';
        return failure;
    }
}
