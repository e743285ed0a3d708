#include "shell-commands.h"

#include <frame/io-statistics.h>
#include <host/log-levels.h>
#include <host/printable.h>
#include <tvservice-adapter/service/health.h>
#include <tvservice-adapter/service/shell-list.h>
#include <tvservice/results.h>
#include <tvservice/values.h>

#include <cerrno>
#include <chrono>
#include <ctime>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

namespace services {

namespace {

using Json = nlohmann::ordered_json;

// Texts of clients may contain any bytes; invalid UTF-8 becomes replacement characters.
std::string dump(const Json& json) { return json.dump(-1, ' ', false, Json::error_handler_t::replace); }

std::string isoTime(std::chrono::system_clock::time_point when) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(when);
    std::tm utc{};
    gmtime_r(&seconds, &utc);
    char text[sizeof "2000-01-01T00:00:00Z"];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc);
    return text;
}

// One object as a line for people: "name value, name value".
std::string lineOf(const Json& object) {
    std::string line;
    for (const auto& [name, value] : object.items())
        line += (line.empty() ? "" : ", ") + name + ' ' + host::printable(dump(value));
    return line + '\n';
}

const char* onOff(bool value) { return value ? "on" : "off"; }

} // namespace

void printList(appovshell::Server& shell, const Json& list) {
    if (shell.wantsJson()) return shell.print(dump(list) + '\n');
    for (const Json& object : list) shell.print(lineOf(object));
}

template <int (ShellCommands::*command)()> int ShellCommands::call(void* context) {
    return (static_cast<ShellCommands*>(context)->*command)();
}

int ShellCommands::registerWith(appovshell::Server& shell) {
    shell_ = &shell;
    const struct {
        const char* specification;
        std::string help;
        appovshell::CommandHandler handler;
    } commands[] = {
        {"terminals", "- lists what the terminals show", call<&ShellCommands::printTerminals>},
        {"failures :s", "REQUEST - why terminals do not show what a request asked for, of the newest failures",
         call<&ShellCommands::printFailures>},
        {"fault :s [:s]",
         std::string("NAME [VALUE] - sets a fault of the answers to play and stop requests: ") + FaultSwitches::help(),
         call<&ShellCommands::setFault>},
        {"faults", "- lists the fault switches", call<&ShellCommands::printFaults>},
        {"health", "- whether the handlers of requests return; fails when one has not returned for 5 seconds",
         call<&ShellCommands::printHealth>},
        {"log :s", "MODULE=LEVEL[,...] - changes what is logged; service=info logs each request",
         call<&ShellCommands::setLogLevels>},
        {"stats [:s]",
         "[TABLES] - counts the messages; with \"tables\", how full each table is and how much it refused",
         call<&ShellCommands::printStatistics>},
    };
    for (const auto& [specification, help, handler] : commands)
        if (const int result = shell.registerCommand(specification, help, handler, this); result < 0) return result;
    return 0;
}

int ShellCommands::setLogLevels() {
    const std::string problem = host::setLogLevels(shell_->getArgument(0));
    if (problem.empty()) return 0;
    shell_->print(problem + "\n");
    return -EINVAL;
}

int ShellCommands::printTerminals() {
    Json list = Json::array();
    for (const auto& [terminal, shown] : table_.entries())
        list.push_back({{"type", terminal.type},
                        {"typeName", nameOf(tvservice::terminalTypes, terminal.type)},
                        {"id", terminal.id},
                        {"uri", shown.uri},
                        {"uuid", shown.uuid},
                        {"client", shown.client},
                        {"since", isoTime(shown.since)}});
    printList(*shell_, list);
    return 0;
}

int ShellCommands::printFailures() {
    Json list = Json::array();
    for (const auto& [request, terminal, result, reason] : table_.failuresOf(shell_->getArgument(0)))
        list.push_back({{"type", terminal.type},
                        {"id", terminal.id},
                        {"result", result},
                        {"resultName", tvservice::nameOfResult(result)},
                        {"reason", reason}});
    printList(*shell_, list);
    return 0;
}

int ShellCommands::setFault() {
    const std::string problem = faults_.set(shell_->getArgument(0), shell_->getArgument(1));
    if (problem.empty()) return 0;
    shell_->print(problem + '\n');
    return -EINVAL;
}

int ShellCommands::printFaults() {
    const Faults faults = faults_.get();
    const Json object = {{"delay", faults.delay.count()},     {"mute", onOff(faults.mute)},
                         {"wrong", onOff(faults.wrong)},      {"duplicate", onOff(faults.duplicate)},
                         {"other-id", onOff(faults.otherId)}, {"exit-after", faults.exitAfter}};
    shell_->print(shell_->wantsJson() ? dump(object) + '\n' : lineOf(object));
    return 0;
}

int ShellCommands::printHealth() {
    const Health now = health();
    const Json object = {
        {"good", now.isGood()}, {"handling", now.handling ? now.handling : ""}, {"sinceMs", now.since.count()}};
    shell_->print(shell_->wantsJson() ? dump(object) + '\n' : lineOf(object));
    return now.isGood() ? 0 : -ETIMEDOUT;
}

int ShellCommands::printStatistics() {
    const std::string what = shell_->getArgument(0);
    if (what == "tables") return printTables();
    if (!what.empty()) {
        shell_->print("stats takes nothing or \"tables\"\n");
        return -EINVAL;
    }
    Json list = Json::array();
    for (const frame::IOStatistics& statistics : frame::ioStatistics()) {
        Json object;
        frame::eachStatistic(statistics, [&](const char* name, const auto& value) { object[name] = value; });
        list.push_back(std::move(object));
    }
    printList(*shell_, list);
    return 0;
}

int ShellCommands::printTables() {
    std::vector<TableCount> tables{table_.count()};
    if (serviceTables_)
        for (TableCount& table : serviceTables_()) tables.push_back(std::move(table));
    Json list = Json::array();
    for (const auto& [name, held, most, refused] : tables)
        list.push_back({{"table", name}, {"held", held}, {"most", most}, {"refused", refused}});
    printList(*shell_, list);
    return 0;
}

} // namespace services
