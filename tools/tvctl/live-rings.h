// The rings of the receiver whose processes were started here, for verbs that follow them.
#pragma once

#include "failure.h"

#include <functional>
#include <iosfwd>
#include <recording/follow.h>
#include <recording/rings.h>

namespace tvctl {

// How often verbs look for events.
inline constexpr std::chrono::milliseconds followInterval{50};

// Reports rings that cannot be read on errors, which must outlive the result. pause: as in recording::Surroundings;
// null: it is not followed.
recording::Surroundings liveRings(recording::Rings::Begin begin, std::ostream& errors, std::function<bool()> pause);

// Says on errors that no process has recorded anything yet, if that is so.
void noteWaiting(const Options& options, std::ostream& errors);

// What is wrong with a recording, as the exit code says it.
Failure failureOf(const recording::RecordingError& error);

// A line on errors about bytes that were lost before the event, if any were.
void reportLoss(const recording::Event& event, std::ostream& errors);

} // namespace tvctl
