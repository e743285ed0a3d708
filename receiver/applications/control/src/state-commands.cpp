#include "state-commands.h"

#include "arguments.h"
#include "command-list.h"
#include "request-report.h"

#include <frame/io-statistics.h>
#include <genrpc/json.h>
#include <host/log-levels.h>
#include <host/printable.h>
#include <host/receiver.h>
#include <lrt/run-log-agent.h>
#include <tvservice/results.h>

#include <algorithm>
#include <chrono>
#include <limits>
#include <map>
#include <optional>
#include <sstream>
#include <utility>

namespace control {
namespace {

using genrpc::Json;

Json toJson(const std::vector<Answer>& answers) {
    Json list = Json::array();
    for (const auto& [time, info] : answers)
        list.push_back({{"time", time},
                        {"reqId", info.reqId},
                        {"terminal", nameOf(info.terminal)},
                        {"typeName", typeNameOf(info.terminal)},
                        {"result", info.result},
                        {"resultName", tvservice::nameOfResult(info.result)},
                        {"uri", info.uri},
                        {"uuid", info.uuid},
                        {"uuidAncestor", info.uuidAncestor}});
    return list;
}

Json toJson(const std::vector<TerminalState>& terminals) {
    Json list = Json::array();
    for (const auto& [shown, last] : terminals)
        list.push_back({{"terminal", nameOf(last.info.terminal)},
                        {"typeName", typeNameOf(last.info.terminal)},
                        {"uri", shown.info.uri},
                        {"uuid", shown.info.uuid},
                        {"reqId", shown.info.reqId},
                        {"asker", shown.info.reqId.empty() ? "" : askerOf(shown.info.reqId)},
                        {"since", shown.time},
                        {"lastResult", last.info.result},
                        {"lastResultName", tvservice::nameOfResult(last.info.result)},
                        {"lastUri", last.info.uri},
                        {"lastReqId", last.info.reqId},
                        {"lastTime", last.time}});
    return list;
}

using Bundles = std::vector<tvservice::BundleStatus>;

std::int64_t overdueMs(const tvservice::BundleStatus& bundle) {
    const std::chrono::milliseconds limit = tvservice::bundleAnswerLimit;
    return std::max<std::int64_t>((bundle.waited - limit).count(), 0);
}

std::string inSeconds(std::int64_t milliseconds) {
    return std::to_string(milliseconds / 1000) + "." + std::to_string(milliseconds % 1000 / 100) + " s";
}

// What the queue's first bundle, the current one, waits for.
std::string stateOfFirst(const tvservice::BundleStatus& bundle) {
    if (const auto overdue = overdueMs(bundle); overdue > 0)
        return "request " + bundle.reqId + " overdue for " + inSeconds(overdue) +
               "; is given up after a second without requests";
    return "request " + bundle.reqId + " awaits its answers for " + inSeconds(bundle.waited.count());
}

// What a queued bundle waits for.
std::string stateOf(const tvservice::BundleStatus& bundle, const tvservice::BundleStatus& first) {
    return &bundle == &first ? stateOfFirst(first)
                             : "request " + bundle.reqId + " waits behind: " + stateOfFirst(first);
}

Json toJson(const Bundles& bundles, std::size_t count) {
    Json list = Json::array();
    for (const auto& bundle : bundles) {
        if (list.size() == count) break;
        Json steps = Json::array(), terminals = Json::array();
        for (const auto& step : bundle.steps)
            steps.push_back({{"operation", step.operation}, {"awaited", step.awaited}});
        for (const auto& terminal : bundle.terminals) terminals.push_back(nameOf(terminal));
        list.push_back({{"reqId", bundle.reqId},
                        {"steps", steps},
                        {"terminals", terminals},
                        {"waitedMs", bundle.waited.count()},
                        {"overdueMs", overdueMs(bundle)},
                        {"state", stateOf(bundle, bundles.front())}});
    }
    return list;
}

// Adds to each terminal the number of its queued requests, and what the first one waits for. Adds terminals that have
// no answer yet.
void addQueued(Json& list, const Bundles& bundles) {
    struct Queued {
        std::size_t requests = 0;
        const tvservice::BundleStatus* first = nullptr;
        const char* typeName = "";
    };
    std::map<std::string, Queued> queued; // bounded by the adapter's queue
    for (const auto& bundle : bundles)
        for (const auto& terminal : bundle.terminals) {
            Queued& entry = queued[nameOf(terminal)];
            if (entry.requests++ > 0) continue;
            entry.first = &bundle;
            entry.typeName = typeNameOf(terminal);
        }
    const auto add = [&](Json& row, const Queued& entry) {
        row["queued"] = entry.requests;
        row["state"] = entry.first == nullptr ? "idle" : stateOf(*entry.first, bundles.front());
    };
    for (Json& row : list) {
        const auto found = queued.find(row["terminal"].get<std::string>());
        add(row, found == queued.end() ? Queued{} : found->second);
        if (found != queued.end()) queued.erase(found);
    }
    for (const auto& [terminal, entry] : queued) {
        Json row = toJson(std::vector{TerminalState{}}).front();
        row["terminal"] = terminal;
        row["typeName"] = entry.typeName;
        add(row, entry);
        list.push_back(std::move(row));
    }
}

// Says so of each idle terminal whose newest request was given up: something may have been stopped or started for it,
// and nobody told.
void addGivenUp(Json& list, const std::vector<RecordedRequest>& requests) {
    std::map<std::string, const RecordedRequest*> newest; // bounded by the log
    for (const auto& request : requests)
        for (const auto& each : request.terminals) newest[nameOf(each.terminal)] = &request;
    for (Json& row : list) {
        const auto found = newest.find(row["terminal"].get<std::string>());
        if (found == newest.end() || found->second->state != RecordedRequest::State::givenUp || row["queued"] != 0 ||
            row["lastReqId"] == found->second->id)
            continue;
        row["state"] = "unknown since request " + found->second->id + " was given up";
    }
}

// One line per object: the values of its members, named.
std::string toLines(const Json& list) {
    std::ostringstream out;
    for (const auto& object : list) {
        const char* separator = "";
        for (const auto& [name, value] : object.items()) {
            out << separator << name << ' '
                << host::printable(value.is_string() ? value.get<std::string>() : genrpc::textOf(value));
            separator = "  ";
        }
        out << '\n';
    }
    return out.str();
}

// Prints a list of objects and returns the command's result.
int report(appovshell::Server& shell, const Json& list) {
    shell.print(shell.wantsJson() ? genrpc::textOf(list) + "\n" : toLines(list));
    return 0;
}

// A command's optional count; nullopt, with the reason printed, when the argument is not a count.
std::optional<std::size_t> countArgument(appovshell::Server& shell, std::size_t byDefault = 10) {
    const std::string text = shell.getArgument(0);
    if (text.empty()) return byDefault;
    std::int32_t count = 0;
    if (!readNumber(text, count) || count < 1) {
        reject(shell, "N must be a number from 1, not " + inQuotes(text));
        return std::nullopt;
    }
    return static_cast<std::size_t>(count);
}

// A notification in JSON. Its arguments are JSON text already.
std::string toJsonText(const Notification& notification) {
    Json object = {{"number", notification.number}, {"time", notification.time}, {"message", notification.message}};
    if (notification.omittedBytes > 0) object["omittedBytes"] = notification.omittedBytes;
    std::string text = genrpc::textOf(object);
    text.back() = ',';
    return text + "\"arguments\":" + (notification.omittedBytes > 0 ? "{}" : notification.arguments) + "}";
}

std::string toLine(const Notification& notification) {
    return std::to_string(notification.number) + " " + notification.time + " " + notification.message + " " +
           (notification.omittedBytes > 0 ? "(" + std::to_string(notification.omittedBytes) + " bytes left out)"
                                          : host::printable(notification.arguments)) +
           "\n";
}

} // namespace

int StateCommands::registerAll() {
    using Self = StateCommands;
    static constexpr Command table[] = {
        {"terminals", "what each terminal shows, the last answer for it, and what is queued for it",
         call<Self, &Self::terminals>},
        {"answers [:d]", "[N] - the newest N answers (10)", call<Self, &Self::answers>},
        {"requests [:d]", "[N] - the newest N play and stop requests (10), what became of them and who did not answer",
         call<Self, &Self::requests>},
        {"request :s", "ID - the same of the request with this id", call<Self, &Self::request>},
        {"notifications [:s]", "[AFTER] - the notifications after number AFTER (the newest 10)",
         call<Self, &Self::notifications>},
        {"bundles [:d]", "[N] - the requests under way and queued, what each waits for, and since when; the first N",
         call<Self, &Self::bundles>},
        {"stats [:s]",
         "[TABLES] - counters of the service connections; with \"tables\", how full each table is and how much it "
         "dropped",
         call<Self, &Self::stats>},
        {"handling", "the notification whose handling has not returned for half a second, and the calls it is in",
         call<Self, &Self::handling>},
        {"runlog [:d]", "[N] - the newest N records of the run log (10)", call<Self, &Self::runlog>},
        {"log :s", "MODULE=LEVEL[,...] - change what is logged", call<Self, &Self::log>},
    };
    return registerCommands(shell_, table, *this);
}

int StateCommands::terminals() {
    Json list = toJson(view_.terminals());
    addQueued(list, adapter_.bundles());
    addGivenUp(list, requestLog_.newest(RequestLog::mostRequests));
    return report(shell_, list);
}

int StateCommands::answers() {
    const auto count = countArgument(shell_);
    return count ? report(shell_, toJson(view_.newest(*count))) : badArgument;
}

int StateCommands::requests() {
    const auto count = countArgument(shell_);
    if (!count) return badArgument;
    Json list = Json::array();
    std::string text;
    for (const auto& request : requestLog_.newest(*count)) {
        if (shell_.wantsJson()) {
            list.push_back(toJson(request));
            continue;
        }
        for (const auto& line : linesOf(request))
            text += request.time + " " + askerOf(request.id) + ": " + host::printable(line) + "\n";
        for (const auto& line : stepLinesOf(request)) text += "  " + host::printable(line) + "\n";
    }
    shell_.print(shell_.wantsJson() ? genrpc::textOf(list) + "\n" : text);
    return 0;
}

int StateCommands::request() {
    const std::string id = shell_.getArgument(0);
    const auto request = requestLog_.find(id);
    if (!request)
        return reject(shell_, "request " + inQuotes(id) + " is not known; the newest " +
                                  std::to_string(RequestLog::mostRequests) + " are kept");
    return report(shell_, Json::array({toJson(*request)}));
}

int StateCommands::notifications() {
    constexpr std::size_t newest = 10, most = 100;
    const std::string text = shell_.getArgument(0);
    std::uint64_t number = 0;
    if (!text.empty() && !readNumber(text, number))
        return reject(shell_, "AFTER must be a notification's number, not " + inQuotes(text));
    std::string output;
    for (const auto& notification : text.empty() ? notifications_.newest(newest) : notifications_.after(number, most)) {
        if (shell_.wantsJson())
            output += (output.empty() ? "[" : ",") + toJsonText(notification);
        else
            output += toLine(notification);
    }
    if (shell_.wantsJson()) output += output.empty() ? "[]\n" : "]\n";
    shell_.print(output);
    return 0;
}

int StateCommands::bundles() {
    const auto count = countArgument(shell_, std::numeric_limits<std::size_t>::max());
    return count ? report(shell_, toJson(adapter_.bundles(), *count)) : badArgument;
}

int StateCommands::stats() {
    const std::string what = shell_.getArgument(0);
    if (what == "tables") return tables();
    if (!what.empty()) return reject(shell_, "stats takes nothing or \"tables\", not " + inQuotes(what));
    Json list = Json::array();
    for (const auto& statistics : frame::ioStatistics()) {
        Json object;
        frame::eachStatistic(statistics, [&](const char* name, const auto& value) { object[name] = value; });
        list.push_back(std::move(object));
    }
    return report(shell_, list);
}

int StateCommands::handling() {
    const auto handling = host::messageQueue().handlingFor(std::chrono::milliseconds(500));
    if (!handling) return report(shell_, Json::array());
    Json calls = Json::array();
    std::string text = handling->message + " of " + handling->service + " has not returned for half a second; in\n";
    for (const auto& [library, function] : handling->calls) {
        calls.push_back({{"library", library}, {"function", function}});
        text += "  " + library + (function.empty() ? "" : ": " + function) + "\n";
    }
    if (!shell_.wantsJson()) {
        shell_.print(text);
        return 0;
    }
    return report(shell_,
                  Json::array({{{"service", handling->service}, {"message", handling->message}, {"calls", calls}}}));
}

int StateCommands::tables() {
    std::vector<TableCount> all = view_.tables();
    all.push_back(notifications_.table());
    all.push_back(requestLog_.table());
    Json list = Json::array();
    for (const auto& [name, held, most, bytes, mostBytes, dropped] : all)
        list.push_back({{"table", name},
                        {"held", held},
                        {"most", most},
                        {"bytes", bytes},
                        {"mostBytes", mostBytes},
                        {"dropped", dropped}});
    return report(shell_, list);
}

int StateCommands::runlog() {
    const auto count = countArgument(shell_);
    if (!count) return badArgument;
    Json list = Json::array();
    for (const auto& record : lrt::RunLogAgentImpl::getInstance().readNewest(*count))
        list.push_back({{"logCode", record.logCode},
                        {"logTime", record.logTime},
                        {"errorCode", record.errorCode},
                        {"logKind", record.logKind},
                        {"eventId", record.eventId},
                        {"logText", record.logText}});
    return report(shell_, list);
}

int StateCommands::log() {
    const std::string problem = host::setLogLevels(shell_.getArgument(0));
    return problem.empty() ? 0 : reject(shell_, problem);
}

} // namespace control
