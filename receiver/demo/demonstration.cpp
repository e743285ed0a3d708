#include "demonstration.h"

#include <tvservice/results.h>

#include <algorithm>
#include <fstream>
#include <media/picture.h>
#include <media/snapshot.h>

namespace demo {
namespace {

using Microseconds = std::chrono::microseconds;
using receiver::Answer;
using receiver::Milliseconds;
using receiver::Part;
using receiver::ReceiverError;
namespace result = tvservice::result;

constexpr const char* stopped = "rec://plain/null";
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

std::string sizeText(int width, int height) { return std::to_string(width) + "x" + std::to_string(height); }

std::string sizeOf(const std::string& png) {
    if (png.empty()) return "no size";
    const media::Picture picture(png);
    return sizeText(picture.width(), picture.height());
}

// In the bar of the first language's subtitles, beside the letters.
bool hasSubtitle(const std::string& png) {
    constexpr int x = 165, y = 443;
    return media::Picture(png).shows(media::Picture::yellow, x, y);
}

} // namespace

std::string named(int result) { return tvservice::nameOfResult(result) + (" (" + std::to_string(result) + ')'); }

Demonstration::Demonstration(receiver::ReceiverKit& kit, const Screen& screen, Broadcasts* broadcasts)
    : kit_(kit), screen_(screen), broadcasts_(broadcasts) {
    if (broadcasts_) {
        film_ = broadcasts_->film();
        return;
    }
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
        {"a page of teletext", &Demonstration::teletext},
        {"the tuner, and a locked terminal", &Demonstration::tunerAndLock},
        {"a download over the air", &Demonstration::download},
        {"who may have the tuner", &Demonstration::negotiation},
        {"the path switch", &Demonstration::pathSwitch},
        {"the MM service hangs", &Demonstration::mediaServiceHangs},
        {"the TV service hangs", &Demonstration::tvServiceHangs},
        {"the TV service is killed and started again", &Demonstration::serviceRestarts},
    };
    for (const auto& [title, step] : steps) {
        steps_.push_back({title, {}, {}, {}});
        const std::string number = std::to_string(steps_.size());
        screen_.title(number + ' ' + title);
        try {
            (this->*step)();
            if (broadcasts_) look();
        } catch (const ReceiverError& error) {
            throw ReceiverError("step " + number + ", " + title + ": " + error.what());
        }
    }
    statistics();
}

// ---- the steps ----

void Demonstration::liveChannel() {
    Request request = ask("0:0", live);
    expectAnswers(request, {{request.reqId, "0:0", 0, live}});
    expectSteps(request, {"SendingStart", "Receiving", "finished"});
    addOutcome(request, named(result::done), timeOf(request, "finished"));
    good("shown; the TV service switches over by itself");
}

void Demonstration::file() {
    if (broadcasts_) broadcasts_->waitForFilm();
    Request request = ask("0:0", film_);
    expectAnswers(request, {{request.reqId, "0:0", 0, film_}});
    expectSteps(request, {"SendingStop", "WaitingStop", "WaitingStop", "SendingStart", "WaitingStart", "finished"});
    addOutcome(request, named(result::done), timeOf(request, "finished"));
    good("the MM service played once both services had stopped");
}

void Demonstration::liveChannelAfterFile() {
    Request request = ask("0:0", live);
    expectAnswers(request, {{request.reqId, "0:0", 0, live}});
    expectSteps(request, {"SendingStop", "WaitingStop,ResResponse::ResponseMM, all ResResponse::ResponseMM",
                          "SendingStart", "WaitingStart,ResResponse::ResponseTV", "finished"});
    addOutcome(request, named(result::done), timeOf(request, "finished"));
    good("the MM service stopped first");
}

void Demonstration::fiveTerminals() {
    Request request = ask("0:0,1:0,2:0,3:0,4:0", live);
    std::vector<Answer> expected;
    for (const char* terminal : {"0:0", "1:0", "2:0", "3:0", "4:0"})
        expected.push_back({request.reqId, terminal, 0, live});
    expectAnswers(request, expected);
    addOutcome(request, named(result::done) + ", 5 times", timeOf(request, "finished"));
    good("one request, one answer list");
}

void Demonstration::missingFile() {
    const std::string missing = "file://" + (kit_.folder() / "missing.ts").string();
    Request request = ask("3:0", missing);
    expectAnswers(request, {{request.reqId, "3:0", result::cannotOpenFile, missing}});
    addOutcome(request, named(result::cannotOpenFile), timeOf(request, "finished"));
    good("the service's reason reached the client");
}

void Demonstration::mediaServiceHangs() {
    kit_.freeze(Part::mmService);
    screen_.line("", "the MM service is frozen");
    Request hanging = ask("1:0", film_);
    Request next = ask("2:0", live);
    addOutcome(hanging, "dropped", expectDropped(hanging));
    expectAnswers(next, {{next.reqId, "2:0", 0, live}});
    addOutcome(next, named(result::done), timeOf(next, "finished"));

    kit_.thaw(Part::mmService);
    screen_.line("", "the MM service goes on; its answer to the stop comes late");
    expectAnswers(hanging, {{hanging.reqId, "1:0", 0, stopped}});
    good("the next bundle was executed; the late answer was passed on unchanged");
}

void Demonstration::tvServiceHangs() {
    kit_.freeze(Part::tvService);
    screen_.line("", "the TV service is frozen");
    Request hanging = ask("0:0", live);
    Request next = ask("2:0", live);
    addOutcome(hanging, "dropped, run log", expectDropped(hanging));

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
    addOutcome(next, named(result::done), timeOf(next, "finished"));
    good("the main terminal's failure has a lasting record; the next bundle was executed");
}

void Demonstration::serviceRestarts() {
    kit_.kill(Part::tvService);
    for (auto& [terminal, shown] : shown_) shown = {}; // it was the service that showed something
    kit_.start(Part::tvService);
    screen_.line("", "the TV service was killed and started again");
    Request request = ask("0:0", "dvb://1.1.2");
    expectAnswers(request, {{request.reqId, "0:0", 0, "dvb://1.1.2"}});
    addOutcome(request, named(result::done), timeOf(request, "finished"));
    good("connected again, the next request works");
}

void Demonstration::statistics() {
    const nlohmann::json services = kit_.ask(Part::frameHost, {"stats"});
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
    screen_.table("Connections", rows);
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
    for (const Answer& answer : got)
        shown_[answer.terminal] = {answer.result == result::done && answer.uri != stopped ? answer.uri : "", 0};
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

void Demonstration::addOutcome(const std::string& request, const std::string& result, const std::string& time) {
    const std::string folder = kit_.folder().string();
    std::string text = request; // short enough for a column
    if (const auto at = text.find(folder); at != std::string::npos) text.replace(at, folder.size(), "...");
    screen_.outcome(text, result, time);
    steps_.back().outcomes.push_back({text, result, time});
}

void Demonstration::addOutcome(const Request& request, const std::string& result, Microseconds time) {
    addOutcome(request.text, result, inMilliseconds(time));
}

void Demonstration::good(const std::string& remark) {
    screen_.good(remark);
    steps_.back().remark = remark;
}

Microseconds Demonstration::timeOf(const Request& request, const std::string& text) {
    return kit_.waitForStep(request.reqId, text).time - request.time;
}

// ---- looking ----

void Demonstration::look() {
    for (const auto& [terminal, shown] : shown_) steps_.back().pictures.push_back(look(terminal, shown));
}

std::optional<Demonstration::Appearance> Demonstration::appearanceOf(const Shown& shown) const {
    // The media engine's test picture and its tone.
    if (shown.uri == input) return Appearance{"HDMI 1", sizeText(720, 576), 440};
    const auto* const program = broadcasts_->programOf(shown.uri);
    if (!program) return std::nullopt;
    return Appearance{program->name, sizeText(program->width, program->height), program->sounds.at(shown.sound).pitch};
}

Picture Demonstration::look(const std::string& terminal, const Shown& shown) {
    const Part shows = shown.uri == film_ ? Part::mmService : Part::tvService;
    const Part other = shows == Part::tvService ? Part::mmService : Part::tvService;
    const auto expected = appearanceOf(shown);
    Picture picture{terminal, "", "", pictureOf(shows, terminal)};
    if (picture.png.empty() == expected.has_value())
        throw ReceiverError(terminal + ": expected " +
                            (expected ? "a picture of " + expected->name + ", got none" : "no picture, got one"));
    if (!pictureOf(other, terminal).empty())
        throw ReceiverError(terminal + ": expected no picture of " + nameOf(other) + ", got one");
    if (!expected) return picture;

    // Teletext and subtitles are seen when they are broadcast the next time.
    const auto isRight = [&] {
        if (shown.isCovered) return !picture.png.empty() && sizeOf(picture.png) != expected->size;
        return sizeOf(picture.png) == expected->size && (!shown.hasSubtitles || hasSubtitle(picture.png));
    };
    const auto looksRight = [&] { return isRight() || (picture.png = pictureOf(shows, terminal), isRight()); };
    const bool waits = shown.isCovered || shown.hasSubtitles;
    if (!(waits ? kit_.waitFor(looksRight, receiver::defaultTimeout) : isRight()))
        throw ReceiverError(
            terminal + ": expected " + (shown.isCovered ? "teletext" : "a picture of " + expected->size) +
            (shown.hasSubtitles ? " with subtitles" : "") + ", got a picture of " + sizeOf(picture.png));
    int heard = 0;
    const auto sounds = [&] { return (heard = kit_.ask(shows, {"level", terminal}).at("pitch")) == expected->pitch; };
    if (!kit_.waitFor(sounds, receiver::defaultTimeout))
        throw ReceiverError(terminal + ": expected a tone of " + std::to_string(expected->pitch) +
                            " Hz, the sound of " + expected->name + ", got " + std::to_string(heard) + " Hz");
    picture.name = expected->name + (shown.isCovered ? ", teletext" : shown.hasSubtitles ? ", subtitles" : "");
    picture.details = sizeOf(picture.png) + ", " + std::to_string(expected->pitch) + " Hz";
    return picture;
}

std::string Demonstration::pictureOf(Part part, const std::string& terminal) {
    std::string png;
    const auto isKnown = [&] {
        try {
            png = media::pictureOf(terminal,
                                   [&](const std::vector<std::string>& words) { return kit_.ask(part, words); });
            return true;
        } catch (const ReceiverError& error) {
            const std::string reason = error.what();
            if (reason.find("there is no picture yet") != std::string::npos) return false;
            if (reason.find("the terminal shows nothing") != std::string::npos) return true;
            throw;
        }
    };
    if (!kit_.waitFor(isKnown, receiver::defaultTimeout)) throw ReceiverError(terminal + ": no picture comes");
    return png;
}

} // namespace demo
