// The steps beyond the play path: requests and notifications of the TV service.
#include "demonstration.h"
#include "notification-text.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <utility>

namespace demo {
namespace {

using nlohmann::json;
using receiver::Part;

json onlyInfo(json info) { return {{"info", std::move(info)}}; }
json answer(int type, int result, const char* uri) {
    return {{"infos", {{{"terminal", {{"type", type}, {"id", 0}}}, {"result", result}, {"uri", uri}}}}};
}

} // namespace

void Demonstration::tracks() {
    expectNotifications({"audio", "0:0", "2"}, {{"TvServiceAudioInfo", onlyInfo({{"intParam1", 2}})}}, "audio track 2");
    expectNotifications({"subtitle", "0:0", "1"}, {{"TvServiceSubtitleInfo", onlyInfo({{"intParam1", 1}})}},
                        "subtitles 1");
    expectNotifications({"video", "0:0", "2"},
                        {{"TvServiceVideoInfo", onlyInfo({{"intParam1", 2}, {"intParam4", 720}})}}, "video track 2");
    expectNotifications({"teletext", "0:0", "1"}, {{"TvServiceTeletextInfo", onlyInfo({{"intParam1", 1}})}},
                        "teletext 1");
    expectNotifications({"mts-audio", "2"}, {{"TvServiceMtsAudioTrackInfoNotify", {{"track", 2}}}}, "both sounds");
    screen_.good("all clients were notified of each choice, with the available streams");
}

void Demonstration::tunerAndLock() {
    constexpr int locked = 6;
    const json terminal = {{"type", 1}, {"id", 0}};
    expectNotifications({"play", "1:0", "dvb://1.2.3"},
                        {{"TvServiceTunerStatusMessage", {{"message", {{"terminal", terminal}, {"intParam4", 2}}}}},
                         {"TvServiceInfo", answer(1, 0, "dvb://1.2.3")},
                         {"TvServiceTunerResult", {{"result", {{"terminal", terminal}, {"byteParam1", 1}}}}},
                         {"TvServiceTeletextInfo", onlyInfo({{"terminal", terminal}})}},
                        "0, after tuning");
    const auto lock = [](int age) {
        return onlyInfo({{"services", {{{"intParam1", 5}, {"byteParam2", 1}, {"shortParam1", age}}}}});
    };
    expectNotifications({"parental-lock", "5:0", "1", "16"}, {{"TvServiceStatusInfo", lock(16)}}, "locked");
    expectNotifications({"play", "5:0", "dvb://1.1.1"}, {{"TvServiceInfo", answer(5, locked, "dvb://1.1.1")}},
                        "6, it is locked");
    expectNotifications({"parental-lock", "5:0", "0"}, {{"TvServiceStatusInfo", json::object()}}, "unlocked");
    screen_.good("clients saw the tuner at work; the locked terminal stayed dark");
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
    screen_.good("found, started, every tenth, done");
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
    screen_.good("a developer can make the TV service send any notification");
}

void Demonstration::pathSwitch() {
    json answers = json::array();
    for (const int type : {0, 9, 1, 4, 8})
        answers.push_back(answer(type, 0, "rec://plain/hdmi?id=0").at("infos").at(0));
    expectNotifications({"pathswitch", "hdmi"}, {{"TvServiceInfo", {{"infos", answers}}}}, "0 five times");
    screen_.good("one command of the adapter shows the input on all windows");
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
    rows_.push_back({number_, command.front() == "emit" ? "emit " + command.at(1) : request.text, result,
                     time == 0 ? "< 1 ms" : std::to_string(time) + " ms"});
}

} // namespace demo
