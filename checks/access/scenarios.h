// What is tried at the sockets of a receiver. Each throws std::exception, saying what was not as it has to be.
#pragma once

#include <cstddef>
#include <map>
#include <string>

namespace access_check {

struct Figures {
    unsigned tries = 0, refusedByFolder = 0, refusedByMode = 0, refusedByCheck = 0; // of another user
    unsigned places = 0;
    std::size_t answers = 0, texts = 0;

    struct Paces { // microseconds, the median of the rounds
        long quiet = 0, crowded = 0;
    };
    std::map<std::string, Paces> roundTrips; // at each door
    unsigned crowd = 0;
    long newcomers = 0, slowestNewcomer = 0, mostDescriptors = 0; // milliseconds
    unsigned badHellos = 0;
    long badHelloLines = 0, badHelloSeconds = 0, linesAllowed = 0;
};

void refuseAnotherUser(unsigned tries, Figures& figures);
void occupyPlaces(Figures& figures);
void answerForOthers(Figures& figures);
void sendTexts(Figures& figures);
void crowdTheDoors(unsigned rounds, unsigned perRound, Figures& figures);
void takeAllDescriptors();
void floodTheLog(unsigned hellos, Figures& figures);

} // namespace access_check
