// What a recording contains.
#pragma once

#include "event.h"
#include "recording-reader.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace recording {

struct ProcessSummary {
    std::shared_ptr<const Origin> origin;
    std::uint64_t events = 0, lost = 0;
    std::int64_t first = 0, last = 0; // dates of its events
};

struct Summary {
    std::vector<ProcessSummary> processes;
    std::map<std::string, std::uint64_t> kinds, messages;
    std::map<std::string, std::string> schemas; // fingerprint, the program that wrote it
    std::uint64_t events = 0, lost = 0;
    std::int64_t first = 0, last = 0; // dates; 0: no events
    bool isTruncated = false;
    std::string problem; // why the rest of the file cannot be read; empty: it can

    void add(const Event& event);
};

// Reads it to the end.
Summary summaryOf(RecordingReader& reader);

std::string nameOf(host::EventKind kind); // "message"; "kind 9" for an unknown one

} // namespace recording
