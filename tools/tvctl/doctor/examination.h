// Runs all checks. A check that hangs does not block the others.
#pragma once

#include "diagnosis.h"

#include <chrono>
#include <functional>

namespace tvctl::doctor {

struct Examination {
    Diagnosis diagnosis;
    bool stuck = false; // a check did not end and still runs, on a thread of its own
};

// Runs a check with a timeout. An exception or the timeout becomes a finding about the subject. Returns whether the
// check has ended; if not, its thread goes on.
bool run(Examination& examination, const std::string& subject, std::function<Diagnosis()> check,
         std::chrono::milliseconds timeout);

// Runs the checks at the same time, and has their findings in a fixed order. timeout: for each answer that a check
// waits for. extra: for the rest of a check's work.
Examination examine(std::chrono::milliseconds timeout, std::chrono::milliseconds extra = std::chrono::seconds(5));

} // namespace tvctl::doctor
