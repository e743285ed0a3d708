// What can happen to a process of a receiver, and when.
#pragma once

#include <kit/receiver-kit.h>
#include <string>
#include <vector>

namespace killed {

using receiver::Part;

// How far a request has come at the victim when it happens. For the framework process, at a service.
enum class Moment { beforeStop, stopAsked, stopAnswered, startAsked, answered, firstExchange };

enum class Fate {
    killed,       // and started again
    exited,       // as asked, and started again
    frozen,       // for six seconds
    staleAnswers, // killed; once it is back it answers what was asked before that
    mute,         // takes requests and does not answer them
    babbling,     // sends what is no message
};

struct Situation {
    Part victim;
    Moment moment;
    Fate fate;
};

std::string textOf(const Situation& situation);

// All there are of one victim.
std::vector<Situation> situationsOf(Part victim);

} // namespace killed
