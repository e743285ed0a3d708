#include "live-rings.h"

#include <host/printable.h>
#include <host/ring-reader.h>

#include <cerrno>
#include <memory>
#include <ostream>
#include <utility>

namespace tvctl {

recording::Surroundings liveRings(recording::Rings::Begin begin, std::ostream& errors, std::function<bool()> pause) {
    constexpr unsigned attempts = 20; // a second
    const auto rings = std::make_shared<recording::Rings>(host::ringFolder(), begin, pause ? attempts : 1);
    const auto appeared = [rings, &errors] {
        auto added = rings->appeared();
        for (const auto& problem : rings->takeProblems())
            errors << "tvctl: warning: " << host::printable(problem) << '\n';
        return added;
    };
    return {appeared, recording::presentMoment, std::move(pause)};
}

void noteWaiting(const Options& options, std::ostream& errors) {
    if (options.quiet || options.json || !host::ringsIn(host::ringFolder()).empty()) return;
    errors << "tvctl: waiting for processes of a receiver; none has recorded anything in "
           << host::printable(host::ringFolder()) << '\n';
}

Failure failureOf(const recording::RecordingError& error) {
    return {error.number() == EBADMSG ? exitBadData : exitFailed, -error.number()};
}

void reportLoss(const recording::Event& event, std::ostream& errors) {
    if (event.lost > 0)
        errors << "tvctl: warning: " << event.lost << " bytes of what " << host::printable(event.origin->process)
               << " recorded were overwritten before they were read\n";
}

} // namespace tvctl
