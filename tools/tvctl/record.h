// tvctl record: writes what the processes of a receiver do, or did, into a recording.
#pragma once

#include "options.h"

#include <chrono>
#include <iosfwd>
#include <optional>
#include <recording/follow.h>
#include <recording/recording-files.h>
#include <string>
#include <vector>

namespace tvctl {

struct RecordOptions {
    Options receiver;
    std::string file;
    std::vector<std::string> texts; // only events with one of these in their line; empty: all
    bool redact = false;
    std::optional<std::chrono::milliseconds> time; // how long to record, or how far back
    recording::Rotation rotation;
};

// Records what happens from now on, until the time has passed or the surroundings end it. Returns the exit code.
int record(const RecordOptions& options, const recording::Surroundings& surroundings, std::ostream& out,
           std::ostream& errors);
// Records what the processes still have of the last time.
int recordLast(const RecordOptions& options, const recording::Surroundings& surroundings, std::ostream& out,
               std::ostream& errors);

// The verb.
int runRecord(const Options& options, const std::vector<std::string>& arguments);

} // namespace tvctl
