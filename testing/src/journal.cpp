#include "journal.h"

#include <charconv>
#include <stdexcept>

namespace tvtest {
namespace {

// Ends each text: when it happened, and in which request.
struct When {
    Time at;
    const std::string& reqId;
};

std::ostream& operator<<(std::ostream& out, Time at) {
    return out << " after " << std::chrono::duration<double>(at).count() << " s";
}
std::ostream& operator<<(std::ostream& out, const When& when) {
    if (!when.reqId.empty()) out << " (request " << when.reqId << ')';
    return out << when.at;
}

} // namespace

std::ostream& operator<<(std::ostream& out, const Request& request) {
    out << request.service << ": ";
    if (request.uri == tvservice::stopUri)
        out << "stop " << request.terminal;
    else
        out << "play " << request.uri << " on " << request.terminal;
    return out << When{request.at, request.reqId};
}

std::ostream& operator<<(std::ostream& out, const Answer& answer) {
    out << answer.terminal << ' ';
    if (answer.result != tvservice::result::done)
        out << "result " << answer.result << " (" << tvservice::nameOfResult(answer.result) << "): " << answer.uri;
    else if (answer.uri == tvservice::stopUri)
        out << "stopped";
    else
        out << "shown: " << answer.uri;
    return out << When{answer.at, answer.reqId};
}

std::ostream& operator<<(std::ostream& out, const DroppedRequest& dropped) {
    return out << dropped.terminal << " dropped" << When{dropped.at, dropped.reqId};
}

std::ostream& operator<<(std::ostream& out, const Message& message) {
    return out << message.name << ' ' << message.arguments << message.at;
}

tvservice::TvServiceTerminal_t terminalOf(const std::string& name) {
    tvservice::TvServiceTerminal_t terminal{};
    const char* const end = name.data() + name.size();
    const auto type = std::from_chars(name.data(), end, terminal.type);
    if (type.ec == std::errc() && type.ptr != end && *type.ptr == ':') {
        const auto id = std::from_chars(type.ptr + 1, end, terminal.id);
        if (id.ec == std::errc() && id.ptr == end) return terminal;
    }
    throw std::invalid_argument("\"" + name + "\" is no terminal; write TYPE:ID, such as 0:0");
}

} // namespace tvtest
