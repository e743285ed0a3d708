#include "described-event.h"

#include "message-decoder.h"
#include "summary.h"

#include <host/printable.h>
#include <vdl/debug.h>

#include <algorithm>
#include <cstdio>
#include <ctime>

namespace recording {
namespace {

constexpr std::int64_t nanosecondsPerSecond = 1'000'000'000;

// Without nanoseconds.
double milliseconds(std::int64_t nanoseconds) {
    const std::int64_t microseconds = nanoseconds / 1000;
    return static_cast<double>(microseconds) / 1000;
}

const char* severityName(std::uint64_t severity) {
    if (severity <= vdlDebugFailure) return "failure";
    if (severity <= vdlDebugWarning) return "warning";
    return severity <= vdlDebugProgress ? "info" : "trace";
}

void describeMessage(Json& json, const Shown& shown) {
    const auto& recorded = shown.event.recorded;
    auto decoded = decode(shown.event, Numbers::named);
    json["direction"] = (recorded.flags & host::EventFlags::sent) != 0 ? "sent" : "received";
    json["service"] = recorded.name;
    json["message"] = decoded.layout ? decoded.layout->name : "unknown";
    if (decoded.layout) json["type"] = decoded.layout->direction;
    json["connection"] = recorded.number;
    json["bytes"] = recorded.size;
    if (decoded.problem.empty())
        json["arguments"] = std::move(decoded.arguments);
    else
        json["problem"] = decoded.problem;
    if (shown.latency) json["latencyMs"] = milliseconds(*shown.latency);
    for (const Receipt& receipt : shown.receipts)
        json["receivers"].push_back({{"process", receipt.receiver->process},
                                     {"pid", receipt.receiver->pid},
                                     {"latencyMs", milliseconds(receipt.latency)}});
}

// What the name and the number of an event of each kind are; null: it has none.
struct Meaning {
    const char* name;
    const char* number;
};
Meaning meaningOf(host::EventKind kind) {
    switch (kind) {
        case host::EventKind::process:
            return {nullptr, nullptr};
        case host::EventKind::connection:
            return {"service", "connection"};
        case host::EventKind::line:
            return {"module", "severity"};
        case host::EventKind::command:
        case host::EventKind::result:
            return {nullptr, "number"};
        case host::EventKind::runLog:
            return {"code", nullptr};
        default:
            return {"name", "number"};
    }
}

void describeText(Json& json, const host::RecordedEvent& recorded) {
    const Meaning meaning = meaningOf(recorded.kind);
    if (meaning.name) json[meaning.name] = recorded.name;
    if (meaning.number) json[meaning.number] = recorded.number;
    if (recorded.kind == host::EventKind::line) json["severityName"] = severityName(recorded.number);
    json["text"] = recorded.data;
    if (recorded.size > recorded.data.size()) json["bytes"] = recorded.size;
}

// ---- as a line ----

bool isLeftOut(const Json& object, const std::string& name, const Json& value) {
    if (value.is_string() || value.is_array()) return value.empty() || value == "";
    if (value.is_boolean()) return value == false;
    return value.is_number() && value == 0 && !object.contains(name + "Name");
}

std::string brief(const Json& value);

std::string briefMembers(const Json& object) {
    std::string text;
    for (const auto& [name, value] : object.items()) {
        constexpr std::string_view suffix = "Name";
        if (name.ends_with(suffix) && object.contains(name.substr(0, name.size() - suffix.size()))) continue;
        if (isLeftOut(object, name, value)) continue;
        text += (text.empty() ? "" : " ") + name + '=' + brief(value);
        if (const auto named = object.find(name + "Name"); named != object.end() && named->is_string())
            text += " (" + named->get<std::string>() + ')';
    }
    return text;
}

std::string brief(const Json& value) {
    if (isTerminal(value)) return terminalText(value);
    if (value.is_object()) return '{' + briefMembers(value) + '}';
    if (!value.is_array()) return textOf(value);
    std::string text;
    for (const Json& element : value) text += (text.empty() ? "" : ", ") + brief(element);
    return '[' + text + ']';
}

std::string latencyText(const Json& latency) {
    char text[32];
    std::snprintf(text, sizeof text, "%.3f ms", latency.get<double>());
    return text;
}

std::string messageLine(const Json& json) {
    std::string peers, latencies;
    if (const auto receivers = json.find("receivers"); receivers != json.end())
        for (const Json& receiver : *receivers) {
            peers += (peers.empty() ? "" : ",") + receiver["process"].get<std::string>();
            latencies += (latencies.empty() ? "" : ", ") + latencyText(receiver["latencyMs"]);
        }
    if (peers.empty()) peers = json["service"].get<std::string>();
    if (json.contains("latencyMs")) latencies = latencyText(json["latencyMs"]) + " after it was sent";
    const bool isSent = json["direction"] == "sent";
    std::string line = (isSent ? " -> " : " <- ") + peers + ' ' + json["message"].get<std::string>();
    const auto arguments = json.find("arguments");
    const std::string content =
        arguments == json.end() ? '(' + json["problem"].get<std::string>() + ')' : briefMembers(*arguments);
    if (!content.empty()) line += ' ' + content;
    return latencies.empty() ? line : line + " (" + latencies + ')';
}

std::string textLine(const Json& json) {
    std::string line = ' ' + json["kind"].get<std::string>();
    for (const char* name : {"service", "module", "code", "name"})
        if (json.contains(name)) line += ' ' + json[name].get<std::string>();
    for (const char* number : {"connection", "number"})
        if (json.contains(number)) line += ' ' + json[number].dump();
    if (json.contains("severityName")) line += ' ' + json["severityName"].get<std::string>();
    return line + ": " + json["text"].get<std::string>();
}

} // namespace

Json describe(const Shown& shown) {
    const Event& event = shown.event;
    Json json{{"time", utcText(event.recorded.date)},
              {"process", event.origin->process},
              {"pid", event.origin->pid},
              {"kind", nameOf(event.recorded.kind)},
              {"thread", event.recorded.thread}};
    if (event.recorded.kind == host::EventKind::message)
        describeMessage(json, shown);
    else
        describeText(json, event.recorded);
    return json;
}

std::string lineOf(const Json& json) {
    constexpr std::size_t dayBytes = sizeof "2026-11-21T" - 1;
    auto time = json["time"].get<std::string>().substr(dayBytes);
    time.pop_back();
    const std::string rest = json["kind"] == "message" ? messageLine(json) : textLine(json);
    return host::printable(time + ' ' + json["process"].get<std::string>() + rest);
}

std::string textOf(const Json& json) { return json.dump(-1, ' ', false, Json::error_handler_t::replace); }

std::string utcText(std::int64_t date) {
    date = std::max<std::int64_t>(date, 0);
    const auto seconds = static_cast<std::time_t>(date / nanosecondsPerSecond);
    std::tm utc{};
    gmtime_r(&seconds, &utc);
    char day[sizeof "2000-01-01T00:00:00" + 16], text[sizeof day + 16];
    std::strftime(day, sizeof day, "%Y-%m-%dT%H:%M:%S", &utc);
    std::snprintf(text, sizeof text, "%s.%06dZ", day, static_cast<int>(date % nanosecondsPerSecond / 1000));
    return text;
}

bool isTerminal(const Json& value) {
    if (!value.is_object() || !value.contains("type") || !value.contains("id")) return false;
    return value["type"].is_number_integer() && value["id"].is_number_integer() &&
           value.size() == (value.contains("typeName") ? 3 : 2);
}

std::string terminalText(const Json& terminal) { return terminal["type"].dump() + ':' + terminal["id"].dump(); }

} // namespace recording
