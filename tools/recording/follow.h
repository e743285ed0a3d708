// Follows events as they happen.
#pragma once

#include "event.h"
#include "merged-events.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace recording {

// What following needs from outside, so that tests own it.
struct Surroundings {
    std::function<std::vector<std::unique_ptr<EventSource>>()> appeared; // sources since the last call
    std::function<Moment()> now;
    std::function<bool()> pause; // until there may be further events; false: it is time to end
};

// Takes what happens. The calls return false to end.
class Follower {
public:
    virtual ~Follower() = default;
    virtual bool take(Event event) = 0;
    // All events up to now have been taken.
    virtual bool rest(const Moment& now) = 0;
};

// Passes the events of all sources in the order of their times. Returns when the follower or the surroundings end it.
void follow(const Surroundings& surroundings, Follower& follower);

// The present, and the run of the system.
Moment presentMoment();

} // namespace recording
