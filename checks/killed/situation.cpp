#include "situation.h"

namespace killed {
namespace {

constexpr Moment allMoments[] = {Moment::beforeStop, Moment::stopAsked, Moment::stopAnswered,
                                 Moment::startAsked, Moment::answered,  Moment::firstExchange};

const char* textOf(Moment moment) {
    switch (moment) {
        case Moment::beforeStop:
            return "before the stop request";
        case Moment::stopAsked:
            return "between the stop request and its answer";
        case Moment::stopAnswered:
            return "after the stop answer";
        case Moment::startAsked:
            return "between the start request and its answer";
        case Moment::answered:
            return "after the answer";
        case Moment::firstExchange:
            return "during a connection's first exchange";
    }
    return "at an unknown moment";
}

const char* textOf(Fate fate) {
    switch (fate) {
        case Fate::killed:
            return "killed";
        case Fate::exited:
            return "exited";
        case Fate::frozen:
            return "frozen for 6 s";
        case Fate::staleAnswers:
            return "killed, back with old answers";
        case Fate::mute:
            return "mute";
        case Fate::babbling:
            return "babbling";
    }
    return "in an unknown state";
}

} // namespace

std::string textOf(const Situation& situation) {
    return std::string(nameOf(situation.victim)) + ' ' + textOf(situation.fate) + ' ' + textOf(situation.moment);
}

std::vector<Situation> situationsOf(Part victim) {
    std::vector<Fate> fates{Fate::killed, Fate::exited, Fate::frozen};
    if (victim != Part::frameHost) // which has no answers to be wrong with
        fates.insert(fates.end(), {Fate::staleAnswers, Fate::mute, Fate::babbling});
    std::vector<Situation> all;
    for (const Moment moment : allMoments)
        for (const Fate fate : fates) all.push_back({victim, moment, fate});
    return all;
}

} // namespace killed
