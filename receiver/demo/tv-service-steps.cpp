// The steps beyond the play path: requests and notifications of the TV service.
#include "demonstration.h"
#include "notification-text.h"

#include <tvservice/results.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <utility>

namespace demo {
namespace {

using nlohmann::json;
using receiver::Part;
namespace result = tvservice::result;

json onlyInfo(json info) { return {{"info", std::move(info)}}; }
json answer(int type, int result, const char* uri) {
    return {{"infos", {{{"terminal", {{"type", type}, {"id", 0}}}, {"result", result}, {"uri", uri}}}}};
}

} // namespace

void Demonstration::tracks() {
    // Asks for a track. When it is not offered, the former choice stays.
    const auto choose = [this](const char* kind, const char* message, int number, bool isOffered,
                               json info = json::object()) {
        info["intParam1"] = isOffered ? number : info.value("intParam1", 0);
        info["intParam2"] = isOffered ? result::done : result::unknownTrack;
        expectNotifications(
            {kind, "0:0", std::to_string(number)}, {{message, onlyInfo(info)}},
            isOffered ? std::string(kind) + " track " + std::to_string(number) : named(result::unknownTrack));
    };
    const bool isSimulated = !broadcasts_;
    choose("audio", "TvServiceAudioInfo", 2, true);
    shown_["0:0"].sound = 1;
    choose("subtitle", "TvServiceSubtitleInfo", 1, true);
    shown_["0:0"].hasSubtitles = true;
    choose("video", "TvServiceVideoInfo", 2, isSimulated, {{"intParam1", 1}, {"intParam4", 720}});
    expectNotifications({"mts-audio", "2"}, {{"TvServiceMtsAudioTrackInfoNotify", {{"track", 2}}}}, "both sounds");
    good(isSimulated ? "all clients were notified of each choice, with the available streams"
                     : "the other sound is heard, and subtitles are seen; there is no second picture to choose");
}

void Demonstration::chooseTeletext(int number) {
    expectNotifications({"teletext", "0:0", std::to_string(number)},
                        {{"TvServiceTeletextInfo", onlyInfo({{"intParam1", number}, {"intParam2", result::done}})}},
                        number == 0 ? "no teletext" : "teletext " + std::to_string(number));
    shown_["0:0"].isCovered = number != 0;
}

void Demonstration::teletext() {
    chooseTeletext(1);
    good(broadcasts_ ? "a page of teletext covers the picture; the sound goes on" : "all clients were notified");
}

void Demonstration::tunerAndLock() {
    chooseTeletext(0);
    if (broadcasts_) broadcasts_->waitForSecond();
    const json terminal = {{"type", 1}, {"id", 0}};
    expectNotifications({"play", "1:0", "dvb://1.2.3"},
                        {{"TvServiceTunerStatusMessage", {{"message", {{"terminal", terminal}, {"intParam4", 2}}}}},
                         {"TvServiceInfo", answer(1, 0, "dvb://1.2.3")},
                         {"TvServiceTunerResult", {{"result", {{"terminal", terminal}, {"byteParam1", 1}}}}},
                         {"TvServiceTeletextInfo", onlyInfo({{"terminal", terminal}})}},
                        named(result::done) + ", after tuning");
    shown_["1:0"] = {"dvb://1.2.3", 0};
    const auto lock = [](int age) {
        return onlyInfo({{"services", {{{"intParam1", 5}, {"byteParam2", 1}, {"shortParam1", age}}}}});
    };
    expectNotifications({"parental-lock", "5:0", "1", "16"}, {{"TvServiceStatusInfo", lock(16)}}, "locked");
    constexpr const char* forAdults = "dvb://1.2.2"; // its broadcast says so
    expectNotifications({"play", "5:0", forAdults}, {{"TvServiceInfo", answer(5, result::locked, forAdults)}},
                        named(result::locked));
    shown_["5:0"] = {};
    expectNotifications({"parental-lock", "5:0", "0"}, {{"TvServiceStatusInfo", json::object()}}, "unlocked");
    good("clients saw the tuner at work; the locked terminal stayed dark");
}

void Demonstration::download() {
    const char* text = "type 1: firmware,maps";
    expectNotifications({"request-packages", "1", "firmware,maps"},
                        {{"TvServiceFoundNewOadPacket", {{"packet", 2}}},
                         {"TvserviceOadStatusNotify", {{"status", 1}, {"text", text}}},
                         {"TvserviceOadProgressNotify", {{"progress", 50}}},
                         {"TvserviceOadProgressNotify", {{"progress", 100}}},
                         {"TvserviceOadStatusNotify", {{"status", 2}, {"text", text}}}},
                        "2 packages");
    good("found, started, every tenth, done");
}

void Demonstration::negotiation() {
    expectNotifications({"ask-release", "1"}, {{"TvServiceAskReleaseConf", {{"confirmation", {{"intParam1", 1}}}}}},
                        "granted");
    const json release = onlyInfo({{"intParam1", 2}, {"byteParam1", 1}});
    expectNotifications({"emit", "TvServiceAskReleaseInfo", release.dump()}, {{"TvServiceAskReleaseInfo", release}},
                        "asked to release", Part::tvService);
    const json conflict = onlyInfo({{"uintList1", {0}}, {"uintList2", {1, 2}}, {"intParam1", 30}});
    expectNotifications({"emit", "TvServiceConflictInfo", conflict.dump()}, {{"TvServiceConflictInfo", conflict}},
                        "notified", Part::tvService);
    good("a developer can make the TV service send any notification");
}

void Demonstration::pathSwitch() {
    json answers = json::array();
    for (const int type : {0, 9, 1, 4, 8}) {
        answers.push_back(answer(type, result::done, input).at("infos").at(0));
        shown_[std::to_string(type) + ":0"] = {input};
    }
    expectNotifications({"pathswitch", "hdmi"}, {{"TvServiceInfo", {{"infos", answers}}}},
                        named(result::done) + ", 5 times");
    good("one command of the adapter shows the input on all windows");
}

void Demonstration::expectNotifications(const std::vector<std::string>& command,
                                        const std::vector<Notification>& expected, const std::string& result,
                                        Part part) {
    Request request;
    for (const std::string& word : command) request.text += (request.text.empty() ? "" : " ") + word;
    const auto before = kit_.newestNotification();
    // In milliseconds, the resolution of the notifications' times.
    request.time = std::chrono::floor<std::chrono::milliseconds>(std::chrono::system_clock::now());
    screen_.line("asked", request.text + (part == Part::tvService ? " (of the TV service)" : ""));
    kit_.read(part, command);

    std::uint64_t last = 0;
    for (const auto& [message, arguments] : expected)
        last = std::max(last, kit_.waitForNotification(message, before, arguments).at("number").get<std::uint64_t>());
    std::vector<json> all;
    std::size_t longest = 0;
    for (json& notification : kit_.notificationsAfter(before)) {
        if (notification.at("number") > last) break;
        longest = std::max(longest, notification.at("message").get<std::string>().size());
        all.push_back(std::move(notification));
    }
    for (const json& notification : all)
        screen_.line("event " + notification.at("number").dump(), notification.at("message"), longest,
                     textOfArguments(notification.at("arguments")));
    const auto end = receiver::timeOf(all.back().at("time")).value_or(request.time);
    const auto time = std::chrono::duration_cast<std::chrono::milliseconds>(end - request.time).count();
    addOutcome(command.front() == "emit" ? "emit " + command.at(1) : request.text, result,
               time == 0 ? "< 1 ms" : std::to_string(time) + " ms");
}

} // namespace demo
