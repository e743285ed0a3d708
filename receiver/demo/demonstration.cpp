#include "demonstration.h"

#include <algorithm>
#include <fstream>

namespace demo {
namespace {

using Microseconds = std::chrono::microseconds;
using receiver::Answer;
using receiver::Milliseconds;
using receiver::Part;
using receiver::ReceiverError;

constexpr const char* live = "dvb://1.1.1";
constexpr const char* stopped = "rec://plain/null";
constexpr int cannotOpen = 3;
constexpr Microseconds answerLimit{5000000};
constexpr Milliseconds dropLimit{15000}; // the manager checks once a second, a loaded machine later
constexpr const char* dropped = "timeout 5s, erase it";

// A log line's text without the source location at its beginning.
std::string withoutLocation(const std::string& text) {
    const auto end = text.find("(): ");
    return end == std::string::npos ? text : text.substr(end + 4);
}

std::string textOf(const Answer& answer) {
    return answer.terminal + " result " + std::to_string(answer.result) + ' ' + answer.uri;
}

std::string textOf(const std::vector<Answer>& answers) {
    std::string result;
    for (const Answer& answer : answers) result += (result.empty() ? "" : ", ") + textOf(answer);
    return result.empty() ? "none" : result;
}

} // namespace

Demonstration::Demonstration(receiver::ReceiverKit& kit, const Screen& screen)
    : kit_(kit), screen_(screen), rows_{{"step", "asked", "result", "time"}} {
    const auto film = kit.folder() / "film.ts";
    std::ofstream(film) << "a film";
    film_ = "file://" + film.string();
}

void Demonstration::run() {
    const struct {
        const char* title;
        void (Demonstration::*step)();
    } steps[] = {
        {"a live channel", &Demonstration::liveChannel},
        {"a file instead", &Demonstration::file},
        {"the live channel again", &Demonstration::liveChannelAfterFile},
        {"five terminals at once", &Demonstration::fiveTerminals},
        {"a file that is not there", &Demonstration::missingFile},
        {"tracks are chosen", &Demonstration::tracks},
        {"the tuner, and a locked terminal", &Demonstration::tunerAndLock},
        {"a download over the air", &Demonstration::download},
        {"who may have the tuner", &Demonstration::negotiation},
        {"the path switch", &Demonstration::pathSwitch},
        {"the MM service hangs", &Demonstration::mediaServiceHangs},
        {"the TV service hangs", &Demonstration::tvServiceHangs},
        {"the TV service is killed and started again", &Demonstration::serviceRestarts},
    };
    for (int number = 0; const auto& [title, step] : steps) {
        number_ = std::to_string(++number);
        screen_.title(number_ + ' ' + title);
        try {
            (this->*step)();
        } catch (const ReceiverError& error) {
            throw ReceiverError("step " + number_ + ", " + title + ": " + error.what());
        }
    }
    screen_.title("Summary");
    screen_.table(rows_);
    statistics();
}

// ---- the steps ----

void Demonstration::liveChannel() {
    Request request = ask("0:0", live);
    expectAnswers(request, {{request.reqId, "0:0", 0, live}});
    expectSteps(request, {"SendingStart", "Receiving", "finished"});
    addRow(request, "0", timeOf(request, "finished"));
    screen_.good("shown; the TV service switches over by itself");
}

void Demonstration::file() {
    Request request = ask("0:0", film_);
    expectAnswers(request, {{request.reqId, "0:0", 0, film_}});
    expectSteps(request, {"SendingStop", "WaitingStop", "WaitingStop", "SendingStart", "WaitingStart", "finished"});
    addRow(request, "0", timeOf(request, "finished"));
    screen_.good("the MM service played once both services had stopped");
}

void Demonstration::liveChannelAfterFile() {
    Request request = ask("0:0", live);
    expectAnswers(request, {{request.reqId, "0:0", 0, live}});
    expectSteps(request, {"SendingStop", "WaitingStop,ResResponse::ResponseMM, all ResResponse::ResponseMM",
                          "SendingStart", "WaitingStart,ResResponse::ResponseTV", "finished"});
    addRow(request, "0", timeOf(request, "finished"));
    screen_.good("the MM service stopped first");
}

void Demonstration::fiveTerminals() {
    Request request = ask("0:0,1:0,2:0,3:0,4:0", live);
    std::vector<Answer> expected;
    for (const char* terminal : {"0:0", "1:0", "2:0", "3:0", "4:0"})
        expected.push_back({request.reqId, terminal, 0, live});
    expectAnswers(request, expected);
    addRow(request, "0 five times", timeOf(request, "finished"));
    screen_.good("one request, one answer list");
}

void Demonstration::missingFile() {
    const std::string missing = "file://" + (kit_.folder() / "missing.ts").string();
    Request request = ask("3:0", missing);
    expectAnswers(request, {{request.reqId, "3:0", cannotOpen, missing}});
    addRow(request, std::to_string(cannotOpen), timeOf(request, "finished"));
    screen_.good("the service's reason reached the client");
}

void Demonstration::mediaServiceHangs() {
    kit_.freeze(Part::mmService);
    screen_.line("", "the MM service is frozen");
    Request hanging = ask("1:0", film_);
    Request next = ask("2:0", live);
    addRow(hanging, "dropped", expectDropped(hanging));
    expectAnswers(next, {{next.reqId, "2:0", 0, live}});
    addRow(next, "0", timeOf(next, "finished"));

    kit_.thaw(Part::mmService);
    screen_.line("", "the MM service goes on; its answer to the stop comes late");
    expectAnswers(hanging, {{hanging.reqId, "1:0", 0, stopped}});
    screen_.good("the next bundle was executed; the late answer was passed on unchanged");
}

void Demonstration::tvServiceHangs() {
    kit_.freeze(Part::tvService);
    screen_.line("", "the TV service is frozen");
    Request hanging = ask("0:0", live);
    Request next = ask("2:0", live);
    addRow(hanging, "dropped, run log", expectDropped(hanging));

    nlohmann::json records;
    if (!kit_.waitFor(
            [&] {
                return !(records = kit_.ask(Part::frameHost, {"runlog", "1"})).empty();
            },
            receiver::defaultTimeout))
        throw ReceiverError("the run log has no entry for the dropped request");
    const auto& record = records.front();
    const std::string logCode = record.at("logCode"), errorCode = record.at("errorCode"), text = record.at("logText");
    screen_.line("run log", logCode + ' ' + errorCode + ' ' + text);
    if (logCode != "004001" || errorCode != "00400109" || text.find(live) == std::string::npos)
        throw ReceiverError("the newest run log entry is not about the dropped request");

    kit_.thaw(Part::tvService);
    screen_.line("", "the TV service goes on; its first answer comes late");
    expectAnswers(hanging, {{hanging.reqId, "0:0", 0, live}});
    expectAnswers(next, {{next.reqId, "2:0", 0, live}});
    addRow(next, "0", timeOf(next, "finished"));
    screen_.good("the main terminal's failure has a lasting record; the next bundle was executed");
}

void Demonstration::serviceRestarts() {
    kit_.kill(Part::tvService);
    kit_.start(Part::tvService);
    screen_.line("", "the TV service was killed and started again");
    Request request = ask("0:0", "dvb://1.1.2");
    expectAnswers(request, {{request.reqId, "0:0", 0, "dvb://1.1.2"}});
    addRow(request, "0", timeOf(request, "finished"));
    screen_.good("connected again, the next request works");
}

void Demonstration::statistics() {
    const nlohmann::json services = kit_.ask(Part::frameHost, {"stats"});
    screen_.title("Connections");
    bool reconnected = false;
    std::vector<Row> rows;
    for (const auto& [counter, value] : services.front().items()) rows.push_back({counter});
    for (const auto& service : services) {
        for (Row& row : rows) {
            const auto& value = service.at(row.front());
            row.push_back(value.is_string() ? value.get<std::string>() : value.dump());
        }
        if (!service.at("connected").get<bool>())
            throw ReceiverError(service.at("service").get<std::string>() + " is not connected");
        reconnected |= service.at("service") == "tvservice" && service.at("reconnects") > 0;
    }
    // The names head the columns.
    std::stable_partition(rows.begin(), rows.end(), [](const Row& row) { return row.front() == "service"; });
    screen_.table(rows);
    if (!reconnected) throw ReceiverError("the TV service's restart is not counted as a reconnection");
}

// ---- asking and checking ----

Demonstration::Request Demonstration::ask(const std::string& terminals, const std::string& uri) {
    Request request;
    request.text = "play " + terminals + ' ' + uri;
    request.time = std::chrono::time_point_cast<std::chrono::microseconds>(std::chrono::system_clock::now());
    request.reqId = kit_.play(terminals, uri);
    screen_.line("asked", request.text + " (request " + request.reqId + ')');
    return request;
}

void Demonstration::showSteps(Request& request) const {
    const auto lines = kit_.stepsOf(request.reqId);
    for (; request.shown < lines.size(); ++request.shown)
        screen_.event(lines[request.shown].time - request.time, withoutLocation(lines[request.shown].text));
}

void Demonstration::expectAnswers(Request& request, const std::vector<Answer>& expected) {
    const std::vector<Answer> got = kit_.waitForAnswers(request.reqId, expected.size());
    showSteps(request);
    for (const Answer& answer : got) screen_.line("answered", textOf(answer));
    if (textOf(got) != textOf(expected))
        throw ReceiverError(request.text + ": expected the answers " + textOf(expected) + ", got " + textOf(got));
}

void Demonstration::expectSteps(const Request& request, const std::vector<std::string>& texts) {
    auto wanted = texts.begin();
    for (const auto& line : kit_.stepsOf(request.reqId))
        if (wanted != texts.end() && line.text.find(*wanted) != std::string::npos) ++wanted;
    if (wanted != texts.end())
        throw ReceiverError(request.text + ": the step \"" + *wanted + "\" did not happen, or not in this order");
}

Microseconds Demonstration::expectDropped(Request& request) {
    const Microseconds after = kit_.waitForStep(request.reqId, dropped, dropLimit).time - request.time;
    showSteps(request);
    if (after <= answerLimit)
        throw ReceiverError(request.text + ": dropped after " + inMilliseconds(after) + " already");
    if (const auto answers = kit_.answersTo(request.reqId); !answers.empty())
        throw ReceiverError(request.text + ": expected no answers, got " + textOf(answers));
    return after;
}

void Demonstration::addRow(const Request& request, const std::string& result, Microseconds time) {
    const std::string folder = kit_.folder().string();
    std::string text = request.text; // short enough for a column
    if (const auto at = text.find(folder); at != std::string::npos) text.replace(at, folder.size(), "...");
    rows_.push_back({number_, text, result, inMilliseconds(time)});
}

Microseconds Demonstration::timeOf(const Request& request, const std::string& text) {
    return kit_.waitForStep(request.reqId, text).time - request.time;
}

} // namespace demo
