#include "check-service.h"

#include "conformance/examination.h"
#include "doctor/files.h"
#include "failure.h"
#include "quiet-log.h"

#include <host/endpoint.h>
#include <host/environment.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <charconv>
#include <iostream>

namespace tvctl {
namespace {

std::optional<std::int32_t> numberOf(std::string_view text) {
    std::int32_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc{} || end != text.data() + text.size() || number < 0) return std::nullopt;
    return number;
}

std::optional<conformance::Terminal> terminalOf(std::string_view text) {
    const std::size_t colon = text.find(':');
    if (colon == std::string_view::npos) return std::nullopt;
    const auto type = numberOf(text.substr(0, colon)), id = numberOf(text.substr(colon + 1));
    if (!type || !id) return std::nullopt;
    return conformance::Terminal{*type, *id};
}

// Why nobody serves a local endpoint; empty when somebody does, or when it is on another host.
std::string notServed(const std::string& service) {
    const std::string endpoint = host::endpointOf(service);
    if (host::isRemote(endpoint)) return {};
    using Kind = doctor::SocketState::Kind;
    const auto kind = doctor::examineSocket(endpoint).kind;
    if (kind != Kind::missing && kind != Kind::stale) return {};
    return service + " does not run: nobody serves " + endpoint + "; start it first";
}

} // namespace

int runCheckService(const Options& given, const std::vector<std::string>& arguments) {
    Options options = given;
    std::string service, terminal = "0:0";
    conformance::Settings settings;
    CLI::App app(
        "Puts a running service through the rules that a receiver relies on, as clients of it, and says which ones it\n"
        "breaks. Plays, stops and changes its state: do not check a service that people use.",
        "tvctl check-service");
    addOptions(app, options, "10");
    app.remove_option(app.get_option("--target")); // it uses the service's own endpoint
    app.add_option("NAME", service, "The service: " + conformance::serviceNames())
        ->required()
        ->check([](const std::string& name) {
            return conformance::protocolOf(name) ? "" : "no service " + name + ": " + conformance::serviceNames();
        });
    app.add_flag("--quick", settings.quick, "Leave out the rules that take long: slow and reconnecting clients");
    app.add_option("--terminal", terminal, "The terminal to play on, TYPE:ID")
        ->capture_default_str()
        ->check([](const std::string& text) {
            return terminalOf(text) ? "" : text + " is not TYPE:ID, two numbers from 0 to 2147483647";
        });
    app.add_option("--address", settings.address,
                   "An address that the service can show; by default one that the reference service can show")
        ->check([](const std::string& address) { return address.empty() ? "an empty address" : ""; });
    app.footer("Exit codes: 0 all rules hold, 1 the service breaks one, 3 it does not run.");
    if (const auto exitCode = parseArguments(app, arguments)) return *exitCode;
    settings.terminal = *terminalOf(terminal);
    settings.timeout = options.timeoutOr(actionTimeout);
    try {
        if (const std::string problem = notServed(service); !problem.empty())
            return report(std::cerr, options.json, {exitNotAvailable, -ENOTCONN}, problem);
        const QuietLog quiet;
        const auto found = conformance::Examination(*conformance::protocolOf(service), settings).run();
        std::cout << (options.json ? asJson(service, found) : asText(found, options.quiet));
        if (const int exitCode = finish(std::cout, std::cerr, options.json); exitCode != exitDone) return exitCode;
        return found.count(conformance::Outcome::kept) == found.findings().size() ? exitDone : exitFailed;
    } catch (const std::exception& error) {
        return report(std::cerr, options.json, {exitFailed, -EIO}, error.what());
    }
}

} // namespace tvctl
