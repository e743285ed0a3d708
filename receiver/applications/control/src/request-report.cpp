#include "request-report.h"

#include "arguments.h"

#include <tvservice/results.h>

#include <chrono>
#include <cstdio>

namespace control {
namespace {

using genrpc::Json;
using State = RecordedRequest::State;
namespace result = tvservice::result;
using namespace std::chrono_literals;

double inMilliseconds(std::chrono::microseconds time) { return static_cast<double>(time.count()) / 1000; }

std::string textOf(std::chrono::microseconds time) {
    const double milliseconds = inMilliseconds(time);
    char text[32];
    if (milliseconds < 10)
        std::snprintf(text, sizeof text, "%.1f ms", milliseconds);
    else if (milliseconds < 1000)
        std::snprintf(text, sizeof text, "%.0f ms", milliseconds);
    else
        std::snprintf(text, sizeof text, "%.1f s", milliseconds / 1000);
    return text;
}

const char* nameOfState(State state) {
    switch (state) {
        case State::queued:
            return "queued";
        case State::sent:
            return "sent";
        case State::answered:
            return "answered";
        case State::givenUp:
            break;
    }
    return "given up";
}

std::string outcomeOf(const RequestedTerminal& terminal) {
    if (!terminal.result) return "got no result";
    const std::int32_t number = *terminal.result;
    if (number == result::done) return terminal.uri == tvservice::stopUri ? "stopped" : "shown " + terminal.uri;
    const std::string named = tvservice::nameOfResult(number) + (" (" + std::to_string(number) + ")");
    if (number == result::superseded) return named + ": a newer request for the terminal is queued";
    return "refused: " + named + ", " + terminal.uri;
}

std::string terminalsOf(const RecordedRequest& request) {
    std::string text;
    for (const auto& each : request.terminals) text += (text.empty() ? "" : ",") + nameOf(each.terminal);
    if (request.moreTerminals > 0) text += " and " + std::to_string(request.moreTerminals) + " more";
    return text;
}

// What happened to the request as a whole.
std::string commonOutcomeOf(const RecordedRequest& request) {
    if (request.state == State::queued) return "queued";
    if (request.steps.empty()) return "given up: it left the queue without an answer";
    const auto& [step, awaited, begin] = request.steps.back();
    if (request.state == State::sent) return "waits for " + awaited + " to answer the " + step;
    return "given up after " + std::to_string(tvservice::bundleAnswerLimit.count()) + " s: " + awaited +
           " did not answer the " + step;
}

} // namespace

std::vector<std::string> linesOf(const RecordedRequest& request) {
    const std::string which =
        " (request " + request.id +
        (request.state == State::answered && request.duration ? ", " + textOf(*request.duration) : std::string()) + ")";
    if (request.state != State::answered) return {terminalsOf(request) + " " + commonOutcomeOf(request) + which};
    std::vector<std::string> lines;
    for (const auto& each : request.terminals) lines.push_back(nameOf(each.terminal) + " " + outcomeOf(each) + which);
    if (request.moreTerminals > 0) lines.push_back("and " + std::to_string(request.moreTerminals) + " more" + which);
    return lines;
}

std::vector<std::string> stepLinesOf(const RecordedRequest& request) {
    std::vector<std::string> lines;
    if (request.state == State::answered && request.duration.value_or(0us) < 1s) return lines;
    for (const auto& [name, awaited, begin] : request.steps)
        lines.push_back(name + " after " + textOf(begin) + ": awaited " + awaited);
    return lines;
}

Json toJson(const RecordedRequest& request) {
    Json terminals = Json::array(), steps = Json::array();
    for (const auto& [terminal, uri, number] : request.terminals) {
        Json row = {{"terminal", nameOf(terminal)},
                    {"typeName", typeNameOf(terminal)},
                    {"uri", uri},
                    {"result", nullptr},
                    {"resultName", nullptr}};
        if (number) {
            row["result"] = *number;
            row["resultName"] = tvservice::nameOfResult(*number);
        }
        terminals.push_back(std::move(row));
    }
    for (const auto& [name, awaited, begin] : request.steps)
        steps.push_back({{"step", name}, {"awaited", awaited}, {"beginMs", inMilliseconds(begin)}});
    Json made = {{"request", request.id},
                 {"asker", askerOf(request.id)},
                 {"time", request.time},
                 {"state", nameOfState(request.state)},
                 {"terminals", terminals},
                 {"moreTerminals", request.moreTerminals},
                 {"steps", steps},
                 {"durationMs", nullptr},
                 {"lateAnswers", request.lateAnswers},
                 {"lines", linesOf(request)}};
    if (request.duration) made["durationMs"] = inMilliseconds(*request.duration);
    return made;
}

} // namespace control
