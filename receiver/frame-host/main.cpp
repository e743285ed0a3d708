// Runs application libraries in a framework process until SIGTERM or SIGINT.
#include "applications.h"

#include <host/configuration.h>
#include <host/log-levels.h>
#include <host/printable.h>
#include <host/receiver.h>
#include <host/result.h>
#include <vdl/debug.h>

#include <CLI/CLI.hpp>
#include <exception>
#include <iostream>
#include <string>
#include <vector>

namespace {

enum ExitCode { success = 0, failure = 1, usage = 2, badData = 6 };

// What the call returns; an exception is printed and becomes the exit code that fits it.
template <class Call> int exitCodeOf(Call call) {
    try {
        return call();
    } catch (const host::ConfigurationError& error) {
        std::cerr << "frame-host: " << error.what() << '\n';
        return badData;
    } catch (const std::exception& error) {
        std::cerr << "frame-host: " << error.what() << '\n';
        return failure;
    }
}

// Starts the debug shell, then loads the libraries in order; the first failure ends the process. The shell starts first
// because the adapter needs one: it looks for a shell, and finds the process's.
int loadAll(void* context) {
    const int started = exitCodeOf([] {
        host::startShell();
        return success;
    });
    if (started != success) return started;
    for (const std::string& library : *static_cast<const std::vector<std::string>*>(context)) {
        if (const int result = host::loadApplication(library)) {
            std::cerr << "frame-host: " << library << " did not start: " << host::ResultText(result).text() << '\n';
            return failure;
        }
    }
    if (const std::string problem = host::unknownLogModules(); !problem.empty())
        std::cerr << "frame-host: warning: log levels: " << host::printable(problem) << '\n';
    return success;
}

} // namespace

int main(int argc, char** argv) {
    CLI::App app{"Runs applications until SIGTERM or SIGINT.", "frame-host"};
    std::vector<std::string> libraries, applications;
    std::string levels;
    app.add_option("LIBRARY", libraries, "Application libraries, loaded in this order");
    app.add_option("--application", applications,
                   "Name of an installed application, such as control, or path of a library; loaded after the adapter "
                   "and each LIBRARY. May be repeated")
        ->type_name("NAME")
        ->allow_extra_args(false); // the next word is a library
    app.add_option("--log", levels, "Debug levels, LEVEL or MODULE=LEVEL, comma-separated");
    app.set_version_flag("--version", "frame-host " TVSA_VERSION);
    try {
        app.parse(argc, argv);
        if (libraries.empty() && applications.empty()) throw CLI::RequiredError("LIBRARY or --application");
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? success : usage;
    }
    if (const std::string problem = levels.empty() ? "" : vdlDebugSetLevels(levels); !problem.empty()) {
        std::cerr << "frame-host: --log: " << problem << '\n';
        return usage;
    }
    return exitCodeOf([&] {
        host::checkConfiguration();
        for (const auto& warning : host::configurationWarnings())
            std::cerr << "frame-host: warning: " << host::printable(warning) << '\n';
        libraries = frame_host::librariesToLoad(libraries, applications, frame_host::moduleFolders());
        return host::runProcess(loadAll, &libraries);
    });
}
