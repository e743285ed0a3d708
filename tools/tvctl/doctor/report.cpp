#include "report.h"

#include "table.h"

#include <host/printable.h>

#include <algorithm>
#include <nlohmann/json.hpp>

namespace tvctl::doctor {
namespace {

const char* nameOf(Severity severity) {
    switch (severity) {
        case Severity::ok:
            return "ok";
        case Severity::warning:
            return "warning";
        case Severity::wrong:
            break;
    }
    return "wrong";
}

const char* colourOf(Severity severity) {
    switch (severity) {
        case Severity::ok:
            return "32";
        case Severity::warning:
            return "33";
        case Severity::wrong:
            break;
    }
    return "31";
}

std::string textOfFindings(const std::vector<const Finding*>& findings, bool coloured) {
    std::vector<Row> rows;
    rows.reserve(findings.size());
    for (const Finding* finding : findings)
        rows.push_back({nameOf(finding->severity), host::printable(finding->subject),
                        host::printable(finding->what) +
                            (finding->remedy.empty() ? "" : " -> " + host::printable(finding->remedy))});
    const auto lines = aligned(rows);
    std::string text;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        const std::size_t name = rows[i][0].size();
        text += coloured ? std::string("\x1b[") + colourOf(findings[i]->severity) + 'm' + rows[i][0] + "\x1b[0m" +
                               lines[i].substr(name)
                         : lines[i];
        text += '\n';
    }
    return text;
}

std::string textOfEntryPoints(const std::vector<EntryPoint>& entryPoints) {
    std::vector<Row> rows{{"OPEN AT", "TO", "STATE"}};
    for (const EntryPoint& entryPoint : entryPoints)
        rows.push_back(
            {host::printable(entryPoint.place), host::printable(entryPoint.who), host::printable(entryPoint.state)});
    std::string text;
    for (const std::string& line : aligned(rows)) text += line + '\n';
    return text;
}

} // namespace

std::size_t countOf(const Diagnosis& diagnosis, Severity severity) {
    return static_cast<std::size_t>(
        std::count_if(diagnosis.findings.begin(), diagnosis.findings.end(),
                      [&](const Finding& finding) { return finding.severity == severity; }));
}

std::string asText(const Diagnosis& diagnosis, const Style& style) {
    std::vector<const Finding*> shown;
    for (const Finding& finding : diagnosis.findings)
        if (!style.quiet || finding.severity != Severity::ok) shown.push_back(&finding);
    std::string text = textOfFindings(shown, style.coloured);
    if (style.quiet) return text;
    if (!diagnosis.entryPoints.empty()) text += '\n' + textOfEntryPoints(diagnosis.entryPoints);
    return text + '\n' + std::to_string(countOf(diagnosis, Severity::ok)) + " ok, " +
           std::to_string(countOf(diagnosis, Severity::warning)) + " warnings, " +
           std::to_string(countOf(diagnosis, Severity::wrong)) + " wrong\n";
}

std::string asJson(const Diagnosis& diagnosis) {
    using Json = nlohmann::ordered_json;
    Json result{{"findings", Json::array()}, {"doors", Json::array()}};
    for (const auto& [severity, subject, what, remedy] : diagnosis.findings)
        result["findings"].push_back(
            {{"severity", nameOf(severity)}, {"subject", subject}, {"what", what}, {"remedy", remedy}});
    for (const auto& [place, who, state] : diagnosis.entryPoints)
        result["doors"].push_back({{"place", place}, {"who", who}, {"state", state}});
    result["ok"] = countOf(diagnosis, Severity::ok);
    result["warnings"] = countOf(diagnosis, Severity::warning);
    result["wrong"] = countOf(diagnosis, Severity::wrong);
    return result.dump(-1, ' ', false, Json::error_handler_t::replace) + '\n';
}

} // namespace tvctl::doctor
