#include "capture-info.h"

#include "failure.h"
#include "live-rings.h"
#include "table.h"

#include <host/printable.h>

#include <CLI/CLI.hpp>
#include <iostream>
#include <nlohmann/json.hpp>
#include <recording/described-event.h>
#include <recording/message-decoder.h>
#include <recording/summary.h>

namespace tvctl {
namespace {

using Json = nlohmann::ordered_json;
using recording::Summary;
using recording::utcText;

bool isOwn(const std::string& fingerprint) { return fingerprint == recording::ownDecoder()->fingerprint(); }

Json asJson(const std::string& file, const Summary& summary) {
    Json json{{"file", file}, {"events", summary.events}};
    if (summary.events > 0) {
        json["begin"] = utcText(summary.first);
        json["end"] = utcText(summary.last);
    }
    json["lostBytes"] = summary.lost;
    json["truncated"] = summary.isTruncated;
    if (!summary.problem.empty()) json["problem"] = summary.problem;
    json["schemas"] = Json::array();
    for (const auto& [fingerprint, program] : summary.schemas)
        json["schemas"].push_back({{"fingerprint", fingerprint}, {"own", isOwn(fingerprint)}, {"program", program}});
    json["processes"] = Json::array();
    for (const auto& process : summary.processes)
        json["processes"].push_back({{"process", process.origin->process},
                                     {"pid", process.origin->pid},
                                     {"version", process.origin->version},
                                     {"began", utcText(process.origin->begin)},
                                     {"boot", process.origin->boot},
                                     {"events", process.events},
                                     {"begin", utcText(process.first)},
                                     {"end", utcText(process.last)},
                                     {"lostBytes", process.lost}});
    json["kinds"] = summary.kinds;
    json["messages"] = summary.messages;
    return json;
}

std::vector<Row> rowsOf(const std::string& file, const Summary& summary) {
    std::vector<Row> rows{{"file", file, std::to_string(summary.events) + " events"}};
    if (summary.events > 0) rows.push_back({"time", utcText(summary.first), "to " + utcText(summary.last)});
    for (const auto& [fingerprint, program] : summary.schemas)
        rows.push_back(
            {"schema", fingerprint,
             (isOwn(fingerprint) ? "that of this tvctl, written by " : "another one, written by ") + program});
    for (const auto& process : summary.processes)
        rows.push_back({"process", process.origin->process + ' ' + std::to_string(process.origin->pid),
                        process.origin->version + ", " + std::to_string(process.events) + " events" +
                            (process.lost > 0 ? ", " + std::to_string(process.lost) + " bytes lost" : "")});
    for (const auto& [kind, count] : summary.kinds) rows.push_back({"kind", kind, std::to_string(count)});
    for (const auto& [message, count] : summary.messages) rows.push_back({"message", message, std::to_string(count)});
    if (summary.lost > 0) rows.push_back({"lost", std::to_string(summary.lost) + " bytes", "overwritten unread"});
    if (summary.isTruncated) rows.push_back({"truncated", "yes", "the last block is not whole"});
    return rows;
}

} // namespace

int runCaptureInfo(const Options& given, const std::vector<std::string>& arguments) {
    Options options = given;
    std::string file;
    CLI::App app(
        "Says what a recording contains: processes, times, how many events and messages of each kind, what was lost,\n"
        "and whether its messages are those of this tvctl. Needs no receiver.",
        "tvctl capture-info");
    app.add_flag("--json", options.json, "As one JSON object, for programs");
    app.add_option("RECORDING", file, "A file of tvctl record")->required();
    if (const auto exitCode = parseArguments(app, arguments)) return *exitCode;
    try {
        recording::RecordingReader reader(file);
        const auto summary = recording::summaryOf(reader);
        if (options.json)
            std::cout << recording::textOf(asJson(file, summary)) << '\n';
        else
            for (const auto& line : aligned(rowsOf(file, summary))) std::cout << host::printable(line) << '\n';
        if (const int exitCode = finish(std::cout, std::cerr, options.json); exitCode != exitDone) return exitCode;
        if (summary.problem.empty()) return exitDone;
        return report(std::cerr, options.json, {exitBadData, -EBADMSG}, summary.problem);
    } catch (const recording::RecordingError& error) {
        return report(std::cerr, options.json, failureOf(error), error.what());
    }
}

} // namespace tvctl
