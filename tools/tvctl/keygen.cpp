#include "keygen.h"

#include "failure.h"

#include <host/keys.h>
#include <host/printable.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <iostream>
#include <nlohmann/json.hpp>

namespace tvctl {
namespace {

std::string makePair(const std::string& file) {
    const auto keys = host::makeKeys();
    host::writeKeys(file, keys);
    return keys.publicKey;
}

} // namespace

int runKeygen(const Options& given, const std::vector<std::string>& arguments) {
    Options options = given;
    std::string file;
    bool show = false;
    CLI::App app(
        "Makes a pair of keys in a new file, which nobody else may read, and prints the public key. A file\n"
        "that is there already is left alone. Needs no receiver.",
        "tvctl keygen");
    app.add_option("FILE", file, "Where the pair is kept; the setting keys.file names it to receivers")->required();
    app.add_flag("--show", show, "Print the public key of a file that is there");
    app.add_flag("--json", options.json, "Print one JSON object, for programs");
    app.add_flag("--quiet", options.quiet, "Print the public key and errors only");
    if (const auto exitCode = parseArguments(app, arguments)) return *exitCode;

    std::string publicKey;
    try {
        publicKey = show ? host::readKeys(file).publicKey : makePair(file);
    } catch (const std::runtime_error& error) {
        return report(std::cerr, options.json, {exitFailed, -EIO}, error.what());
    }
    std::cout << (options.json ? toText({{"public", publicKey}, {"file", file}}) : publicKey) << '\n';
    if (const int exitCode = finish(std::cout, std::cerr, options.json); exitCode != exitDone) return exitCode;
    if (!show && !options.json && !options.quiet)
        std::cerr << "The pair is in " << host::printable(file)
                  << ", which keys.file has to name on this machine and which stays here.\n"
                  << "The public key above goes to the others: into keys.clients where the services are,\n"
                     "into keys.services.SERVICE where the framework is.\n";
    return exitDone;
}

} // namespace tvctl
