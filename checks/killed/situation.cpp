#include "situation.h"

namespace killed {
namespace {

constexpr Moment allMoments[] = {Moment::beforeStop, Moment::stopSent, Moment::stopAnswered,
                                 Moment::startSent,  Moment::answered, Moment::firstExchange};

const char* textOf(Moment moment) {
    switch (moment) {
        case Moment::beforeStop:
            return "before the stop request";
        case Moment::stopSent:
            return "between the stop request and its answer";
        case Moment::stopAnswered:
            return "after the stop answer";
        case Moment::startSent:
            return "between the start request and its answer";
        case Moment::answered:
            return "after the answer";
        case Moment::firstExchange:
            return "during a connection's first exchange";
    }
    return "at an unknown moment";
}

const char* textOf(Fault fault) {
    switch (fault) {
        case Fault::killed:
            return "killed";
        case Fault::exited:
            return "exited";
        case Fault::frozen:
            return "frozen for 6 s";
        case Fault::staleAnswers:
            return "restarted and sending old answers";
        case Fault::mute:
            return "mute";
        case Fault::garbage:
            return "sending garbage";
    }
    return "in an unknown state";
}

} // namespace

std::string textOf(const Situation& situation) {
    return std::string(nameOf(situation.victim)) + ' ' + textOf(situation.fault) + ' ' + textOf(situation.moment);
}

std::vector<Situation> situationsOf(Part victim) {
    std::vector<Fault> faults{Fault::killed, Fault::exited, Fault::frozen};
    if (victim != Part::frameHost) // it sends no answers
        faults.insert(faults.end(), {Fault::staleAnswers, Fault::mute, Fault::garbage});
    std::vector<Situation> all;
    for (const Moment moment : allMoments)
        for (const Fault fault : faults) all.push_back({victim, moment, fault});
    return all;
}

} // namespace killed
