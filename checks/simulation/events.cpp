#include "events.h"

#include <charconv>

namespace simulation {
namespace {

template <typename Number> void appendNumber(std::string& text, Number number) {
    char digits[24];
    text.append(digits, std::to_chars(digits, digits + sizeof digits, number).ptr);
}

void put(std::string& text, std::int32_t number) { appendNumber(text, number); }
void put(std::string& text, const std::string& value) { (text += '\'') += value, text += '\''; }
template <typename Terminal>
requires requires(Terminal terminal) { terminal.type; }
void put(std::string& text, const Terminal& terminal) {
    appendNumber(text, terminal.type);
    text += ':';
    appendNumber(text, terminal.id);
}
void put(std::string& text, const std::vector<std::string>& values) {
    for (const std::string& value : values) put(text, value);
}

void describe(std::string& text, const std::vector<Event>& events, const std::string& indent);

const char* nameOf(Place place) {
    switch (place) {
        case Place::MmSending:
            return "while the MM service is sent a list";
        case Place::TvSending:
            return "while the TV service is sent a list";
        case Place::Waiting:
            return "the wait ends early after";
        case Place::Expiring:
            return "as the wait's second ends";
        case Place::Reporting:
            return "while the first client is told";
    }
    return "";
}

void describe(std::string& text, const Event& event, const std::string& indent) {
    text += indent;
    switch (event.kind) {
        case Event::Kind::Request:
            text += "request";
            append(text, event.requests);
            break;
        case Event::Kind::Answer:
            text += "answer of ";
            text += event.from == 1 ? "the MM service" : event.from == 2 ? "the TV service" : "";
            if (event.from != 1 && event.from != 2) appendNumber(text, event.from);
            append(text, event.infos);
            break;
        case Event::Kind::Work:
            text += "the worker's cycle\n";
            break;
        case Event::Kind::Pass:
            appendNumber(text, event.time.count());
            text += " ns pass\n";
            break;
    }
    for (const Event::Inside& inside : event.inside) {
        ((text += indent) += "  ") += nameOf(inside.place);
        text += inside.events.empty() ? ": nothing\n" : ":\n";
        describe(text, inside.events, indent + "    ");
    }
}

void describe(std::string& text, const std::vector<Event>& events, const std::string& indent) {
    for (const Event& event : events) describe(text, event, indent);
}

} // namespace

#define SIMULATION_APPEND(type, name) \
    text += " " #name "=";            \
    put(text, record.name);

void append(std::string& text, const tvservice::TvServiceReq_t& record) { TVSERVICE_REQ_FIELDS(SIMULATION_APPEND) }

void append(std::string& text, const mmservice::MMServiceReq_t& record) { MMSERVICE_REQ_FIELDS(SIMULATION_APPEND) }

void append(std::string& text, const tvservice::TvServiceInfo_t& record) { TVSERVICE_INFO_FIELDS(SIMULATION_APPEND) }

void append(std::string& text, const frame::MsgIds& ids, const frame::TransportInfo& transport) {
    for (const std::uint64_t number : {std::uint64_t{ids.sender}, std::uint64_t{ids.sequence}, transport.connection,
                                       std::uint64_t{transport.ids.sender}, std::uint64_t{transport.ids.sequence}}) {
        text += ' ';
        appendNumber(text, number);
    }
}

std::string describe(const Schedule& schedule) {
    std::string text = "seed " + std::to_string(schedule.seed) + ", logging up to " + std::to_string(schedule.level) +
                       ", first number " + std::to_string(schedule.firstId) + "\n";
    describe(text, schedule.events, "  ");
    return text;
}

} // namespace simulation
