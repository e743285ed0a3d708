// The options of tvctl monitor.
#include "failure.h"
#include "live-rings.h"
#include "monitor.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <iterator>
#include <recording/summary.h>
#include <schema/schema.h>
#include <thread>

namespace tvctl {
namespace {

std::vector<std::string> kindNames() {
    std::vector<std::string> names;
    for (auto kind = host::EventKind::process; kind <= host::EventKind::runLog;
         kind = static_cast<host::EventKind>(static_cast<int>(kind) + 1))
        names.push_back(recording::nameOf(kind));
    return names;
}

bool isMessage(const std::string& name) {
    return std::ranges::any_of(schema::services(), [&](const schema::Service& service) {
        return std::ranges::any_of(service.messages,
                                   [&](const schema::Message& message) { return name == message.name; });
    });
}

std::string checkTerminal(const std::string& text) {
    const auto colon = text.find(':');
    const auto isNumber = [](const std::string& part) {
        return !part.empty() && part.find_first_not_of("0123456789", part[0] == '-' ? 1 : 0) == std::string::npos;
    };
    const bool isTerminal =
        colon != std::string::npos && isNumber(text.substr(0, colon)) && isNumber(text.substr(colon + 1));
    return isTerminal ? "" : "'" + text + "' is not a terminal, TYPE:ID";
}

// A recording may have messages that this tool does not know.
std::string unknownMessage(const MonitorOptions& options) {
    for (const auto& name : options.filter.messages)
        if (!isMessage(name)) return "there is no message " + name + "; tvctl schema lists them";
    return "";
}

void addFilters(CLI::App& app, recording::EventFilter& filter, std::optional<std::string>& condition) {
    const auto names = [&app](const char* option, std::set<std::string>& set, const char* help) {
        return app
            .add_option_function<std::vector<std::string>>(
                option, [&set](const std::vector<std::string>& given) { set.insert(given.begin(), given.end()); }, help)
            ->type_name("NAME")
            ->allow_extra_args(false);
    };
    names("--message", filter.messages, "Only messages of this name; may be repeated");
    names("--service", filter.services, "Only messages and connections of this service; may be repeated");
    names("--process", filter.processes, "Only events of this process; may be repeated");
    names("--kind", filter.kinds, "Only events of this kind; may be repeated")->check(CLI::IsMember(kindNames()));
    app.add_option("--terminal", filter.terminal, "Only what concerns this terminal, TYPE:ID")->check(checkTerminal);
    app.add_option("--request", filter.request, "Only what concerns the request with this id");
    app.add_option("--where", condition, "Only events that fulfil this condition");
}

} // namespace

int runMonitor(const Options& given, const std::vector<std::string>& arguments) {
    MonitorOptions options{given, {}, false, {}};
    std::string file;
    std::optional<std::string> condition;
    bool once = false;
    std::size_t count = 0;
    CLI::App app(
        "Prints what the processes of the receiver started here do, one line per event: time, process, message and\n"
        "arguments. Does not delay the processes, and follows those that start later. A message appears once, with\n"
        "the time when it was sent and how long it took.",
        "tvctl monitor");
    addOptions(app, options.receiver, noTimeout);
    app.remove_option(app.get_option("--target")); // --process chooses one
    app.add_option("RECORDING", file, "Print a recording instead");
    addFilters(app, options.filter, condition);
    app.add_flag("--both", options.both, "Print a message when it is sent and when it arrives");
    auto* countOption = app.add_option("--count", count, "End after this many events")
                            ->check(CLI::Range(std::uint64_t{1}, std::uint64_t{1000000000}));
    app.add_flag("--once", once, "The same as --count 1")->excludes(countOption);
    app.footer(
        "Conditions: infos.result != 0 and not (infos.uri ~ 'dvb:' or latencyMs > 5). A path names an argument and\n"
        "fields inside it, or a member of what --json prints; operators are == != < > <= >= and ~ for \"contains\".\n"
        "A condition about a list holds if it holds for one of its elements.\n\n"
        "With --timeout, it ends with exit code 4 after that many seconds, unless the wanted number has arrived "
        "before.");
    if (const auto exitCode = parseArguments(app, arguments)) return *exitCode;
    if (once) count = 1;
    if (count > 0) options.count = count;
    try {
        if (condition) options.filter.where.emplace(*condition);
    } catch (const recording::ConditionError& error) {
        return report(std::cerr, options.receiver.json, {exitUsage, -EINVAL}, std::string("--where: ") + error.what());
    }
    if (!file.empty()) return monitorRecording(options, file, std::cout, std::cerr);
    if (const auto problem = unknownMessage(options); !problem.empty())
        return report(std::cerr, options.receiver.json, {exitUsage, -EINVAL}, problem);
    noteWaiting(options.receiver, std::cerr);
    const auto pause = [] {
        std::this_thread::sleep_for(followInterval);
        return true;
    };
    return monitor(options, liveRings(recording::Rings::Begin::newest, std::cerr, pause), std::cout, std::cerr);
}

} // namespace tvctl
