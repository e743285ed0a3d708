#include "rules.h"

#include "table.h"

#include <host/printable.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string_view>

namespace tvctl::conformance {
namespace {

const char* nameOf(Outcome outcome) {
    switch (outcome) {
        case Outcome::kept:
            return "kept";
        case Outcome::broken:
            return "broken";
        case Outcome::notChecked:
            break;
    }
    return "not checked";
}

std::string textOf(const Finding& finding) {
    if (finding.outcome != Outcome::broken) return finding.rule->text;
    return host::printable(finding.what) + " (a service " + finding.rule->text + ") -> " + finding.rule->remedy;
}

} // namespace

Report::Report(bool quick) {
    for (const Rule& rule : rules)
        if (!quick || rule.quick) findings_.push_back({&rule});
}

Finding* Report::find(const char* id) {
    const auto found = std::find_if(findings_.begin(), findings_.end(),
                                    [&](const Finding& finding) { return finding.rule->id == std::string_view(id); });
    if (found == findings_.end()) throw std::logic_error(std::string("the rule ") + id + " is not checked");
    return &*found;
}

void Report::keeps(const char* id) {
    Finding& finding = *find(id);
    if (finding.outcome == Outcome::notChecked) finding.outcome = Outcome::kept;
}

void Report::breaks(const char* id, const std::string& what) {
    Finding& finding = *find(id);
    if (finding.outcome == Outcome::broken) return;
    finding.outcome = Outcome::broken;
    finding.what = what;
}

bool Report::isBroken(const char* id) const {
    return std::any_of(findings_.begin(), findings_.end(), [&](const Finding& finding) {
        return finding.rule->id == std::string_view(id) && finding.outcome == Outcome::broken;
    });
}

std::size_t Report::count(Outcome outcome) const {
    return static_cast<std::size_t>(std::count_if(findings_.begin(), findings_.end(),
                                                  [&](const Finding& finding) { return finding.outcome == outcome; }));
}

std::string asText(const Report& report, bool quiet) {
    std::vector<Row> rows;
    for (const Finding& finding : report.findings())
        if (!quiet || finding.outcome == Outcome::broken)
            rows.push_back({nameOf(finding.outcome), finding.rule->id, textOf(finding)});
    std::string text;
    for (const std::string& line : aligned(rows)) text += line + '\n';
    if (quiet) return text;
    return text + '\n' + std::to_string(report.count(Outcome::kept)) + " kept, " +
           std::to_string(report.count(Outcome::broken)) + " broken, " +
           std::to_string(report.count(Outcome::notChecked)) + " not checked\n";
}

std::string asJson(const std::string& service, const Report& report) {
    using Json = nlohmann::ordered_json;
    Json result{{"service", service}, {"rules", Json::array()}};
    for (const auto& [rule, outcome, what] : report.findings())
        result["rules"].push_back({{"rule", rule->id},
                                   {"text", rule->text},
                                   {"outcome", nameOf(outcome)},
                                   {"what", what},
                                   {"remedy", outcome == Outcome::broken ? rule->remedy : ""}});
    result["kept"] = report.count(Outcome::kept);
    result["broken"] = report.count(Outcome::broken);
    result["notChecked"] = report.count(Outcome::notChecked);
    return result.dump(-1, ' ', false, Json::error_handler_t::replace) + '\n';
}

} // namespace tvctl::conformance
