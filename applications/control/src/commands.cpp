#include "commands.h"

#include <frame/io-statistics.h>
#include <lrt/run-log-agent.h>
#include <vdl/debug.h>

#include <charconv>
#include <nlohmann/json.hpp>
#include <optional>
#include <sstream>

namespace control {
namespace {

using Json = nlohmann::ordered_json;

constexpr int badArgument = -22;

std::string nameOf(const tvservice::TvServiceTerminal_t& terminal) {
    return std::to_string(terminal.type) + ":" + std::to_string(terminal.id);
}

bool readNumber(std::string_view text, std::int32_t& number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc{} && end == text.data() + text.size();
}

// "type:id"
std::optional<tvservice::TvServiceTerminal_t> readTerminal(std::string_view text) {
    const auto colon = text.find(':');
    tvservice::TvServiceTerminal_t terminal;
    if (colon == std::string_view::npos || !readNumber(text.substr(0, colon), terminal.type) ||
        !readNumber(text.substr(colon + 1), terminal.id))
        return std::nullopt;
    return terminal;
}

Json toJson(const Answer& answer) {
    return {{"time", answer.time},
            {"reqId", answer.info.reqId},
            {"terminal", nameOf(answer.info.terminal)},
            {"result", answer.info.result},
            {"uri", answer.info.uri},
            {"uuid", answer.info.uuid},
            {"uuidAncestor", answer.info.uuidAncestor}};
}

Json toJson(const std::vector<Answer>& answers) {
    Json list = Json::array();
    for (const auto& answer : answers) list.push_back(toJson(answer));
    return list;
}

// Texts come from services and need not be UTF-8.
std::string dump(const Json& json) { return json.dump(-1, ' ', false, Json::error_handler_t::replace); }

// One line per object: the values of its members, named.
std::string toLines(const Json& list) {
    std::ostringstream out;
    for (const auto& object : list) {
        const char* separator = "";
        for (const auto& [name, value] : object.items()) {
            out << separator << name << ' ' << (value.is_string() ? value.get<std::string>() : dump(value));
            separator = "  ";
        }
        out << '\n';
    }
    return out.str();
}

} // namespace

int Commands::registerAll() {
    struct Entry {
        const char* specification;
        const char* help;
        appovshell::CommandHandler handler;
    };
    static constexpr Entry entries[] = {
        {"play :s :s [:s]", "TERMINAL[,TERMINAL...] URI [UUID]: show something (a terminal is type:id)",
         [](void* self) { return static_cast<Commands*>(self)->play(); }},
        {"stop :s", "TERMINAL[,TERMINAL...]: stop what is shown",
         [](void* self) { return static_cast<Commands*>(self)->stop(); }},
        {"terminals", "the last answer of each terminal",
         [](void* self) { return static_cast<Commands*>(self)->terminals(); }},
        {"answers [:d]", "[N]: the newest N answers (10)",
         [](void* self) { return static_cast<Commands*>(self)->answers(); }},
        {"bundles", "the resource manager's queue, with steps and what is awaited",
         [](void* self) { return static_cast<Commands*>(self)->bundles(); }},
        {"stats", "counters of the service connections",
         [](void* self) { return static_cast<Commands*>(self)->stats(); }},
        {"runlog [:d]", "[N]: the newest N records of the run log (10)",
         [](void* self) { return static_cast<Commands*>(self)->runlog(); }},
        {"log :s", "MODULE=LEVEL[,...]: change what is logged",
         [](void* self) { return static_cast<Commands*>(self)->log(); }},
    };
    for (const auto& entry : entries)
        if (const int result = shell_.registerCommand(entry.specification, entry.help, entry.handler, this); result < 0)
            return result;
    return 0;
}

int Commands::refuse(const std::string& why) {
    shell_.print(why + "\n");
    return badArgument;
}

int Commands::submit(const std::string& uri, const std::string& uuid) {
    std::vector<tvservice::TvServiceReq_t> requests;
    std::istringstream terminals(shell_.getArgument(0));
    for (std::string text; std::getline(terminals, text, ',');) {
        const auto terminal = readTerminal(text);
        if (!terminal) return refuse("terminal '" + text + "': wanted TYPE:ID, two decimal numbers");
        tvservice::TvServiceReq_t request;
        request.terminal = *terminal;
        request.uri = uri;
        request.uuid = uuid;
        requests.push_back(std::move(request));
    }
    if (requests.empty()) return refuse("no terminal given");
    frame::MsgIds ids;
    const int result = adapter_.tvServiceReq(ids, frame::TransportInfo{}, requests);
    if (result < 0) return result;
    shell_.print(shell_.wantsJson() ? dump(Json{{"queued", requests.size()}}) + "\n"
                                    : "queued " + std::to_string(requests.size()) + "\n");
    return 0;
}

int Commands::play() {
    const std::string uri = shell_.getArgument(1);
    if (uri.empty()) return refuse("no URI given");
    return submit(uri, shell_.getArgument(2));
}

int Commands::stop() { return submit(tvservice::stopUri, ""); }

namespace {

int report(appovshell::Server& shell, const Json& list) {
    shell.print(shell.wantsJson() ? dump(list) + "\n" : toLines(list));
    return 0;
}

// The number of a command's optional argument; 10 without one. Nothing when it is no count.
std::optional<std::size_t> countArgument(appovshell::Server& shell) {
    const std::string text = shell.getArgument(0);
    if (text.empty()) return 10;
    std::int32_t count = 0;
    if (!readNumber(text, count) || count < 0) return std::nullopt;
    return static_cast<std::size_t>(count);
}

} // namespace

int Commands::terminals() { return report(shell_, toJson(view_.terminals())); }

int Commands::answers() {
    const auto count = countArgument(shell_);
    return count ? report(shell_, toJson(view_.newest(*count))) : refuse("wanted a count");
}

int Commands::bundles() {
    Json list = Json::array();
    for (const auto& bundle : adapter_.bundles()) {
        Json steps = Json::array();
        for (const auto& step : bundle.steps)
            steps.push_back({{"operation", step.operation}, {"awaited", step.awaited}});
        list.push_back({{"reqId", bundle.reqId}, {"steps", steps}});
    }
    return report(shell_, list);
}

int Commands::stats() {
    Json list = Json::array();
    for (const auto& service : frame::ioStatistics())
        list.push_back({{"service", service.service},
                        {"connected", service.connected},
                        {"sent", service.sent},
                        {"received", service.received},
                        {"dropped", service.dropped},
                        {"refused", service.refused},
                        {"undecodable", service.undecodable},
                        {"reconnects", service.reconnects},
                        {"queued", service.queued}});
    return report(shell_, list);
}

int Commands::runlog() {
    const auto count = countArgument(shell_);
    if (!count) return refuse("wanted a count");
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

int Commands::log() {
    const std::string wrong = vdlDebugSetLevels(shell_.getArgument(0));
    return wrong.empty() ? 0 : refuse(wrong);
}

} // namespace control
