// Calls functions of applications and services.
#pragma once

#include "base/error-text.h"

#include <exception>
#include <new>
#include <utility>

namespace host {

struct Thrown {
    const char* what;
    bool outOfMemory = false;
};

// Runs call and passes an exception of it to report. Returns whether there was none. Throws what report throws.
template <class Call, class Report> bool guardedCall(Call&& call, Report&& report) {
    try {
        std::forward<Call>(call)();
        return true;
    } catch (const std::exception& error) {
        report(Thrown{textOf(error), dynamic_cast<const std::bad_alloc*>(&error) != nullptr});
    } catch (...) {
        report(Thrown{"an exception of an unknown type"});
    }
    return false;
}

} // namespace host
