// All checks, one after the other, none of which can keep the others waiting for ever.
#pragma once

#include "diagnosis.h"

#include <chrono>
#include <functional>

namespace tvctl::doctor {

struct Examination {
    Diagnosis diagnosis;
    bool stuck = false; // a check did not end and still runs, on a thread of its own
};

// Runs a check for at most so long. What it throws, and that it does not end, are findings about the subject. Returns
// whether it has ended: if not, it goes on with what it has.
bool run(Examination& examination, const std::string& subject, std::function<Diagnosis()> check,
         std::chrono::milliseconds longest);

// timeout: for each answer that a check waits for. besides: for what else a check does.
Examination examine(std::chrono::milliseconds timeout, std::chrono::milliseconds besides = std::chrono::seconds(5));

} // namespace tvctl::doctor
