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
        "Writes a new key pair to a new file, which no other user may read, and prints the public key. Never\n"
        "overwrites a file. Needs no receiver.",
        "tvctl keygen");
    app.add_option("FILE", file, "The file of the pair; receivers find it through the setting keys.file")->required();
    app.add_flag("--show", show, "Print the public key of an existing file");
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
        std::cerr << "The key pair is in " << host::printable(file)
                  << ". Set keys.file to this file; keep it on this machine.\n"
                  << "Give the public key above to the other hosts: in keys.clients where the services run,\n"
                     "in keys.services.SERVICE where the framework runs.\n";
    return exitDone;
}

} // namespace tvctl
