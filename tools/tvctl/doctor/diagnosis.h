// The findings of an examination.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tvctl::doctor {

inline constexpr std::uint64_t mebibyte = 1024 * 1024; // the unit of sizes in findings

enum class Severity { ok, warning, wrong };

struct Finding {
    Severity severity;
    std::string subject; // what was checked: "queue.bytes", "tvservice", a folder
    std::string what;
    std::string remedy; // what to do about it; empty when it is ok
};

inline bool operator==(const Finding& a, const Finding& b) {
    return a.severity == b.severity && a.subject == b.subject && a.what == b.what && a.remedy == b.remedy;
}

// A path or an address that clients can connect to.
struct EntryPoint {
    std::string place;
    std::string who; // may connect
    std::string state;
};

struct Diagnosis {
    std::vector<Finding> findings;
    std::vector<EntryPoint> entryPoints;

    void ok(const std::string& subject, const std::string& what) { add(Severity::ok, subject, what, {}); }
    void warn(const std::string& subject, const std::string& what, const std::string& remedy) {
        add(Severity::warning, subject, what, remedy);
    }
    void wrong(const std::string& subject, const std::string& what, const std::string& remedy) {
        add(Severity::wrong, subject, what, remedy);
    }
    void add(Severity severity, const std::string& subject, const std::string& what, const std::string& remedy) {
        findings.push_back({severity, subject, what, remedy});
    }
    void add(Diagnosis&& other) {
        for (auto& finding : other.findings) findings.push_back(std::move(finding));
        for (auto& entryPoint : other.entryPoints) entryPoints.push_back(std::move(entryPoint));
    }
};

} // namespace tvctl::doctor
