// What is tried at the sockets of a receiver. Each throws std::exception, saying what was not as it has to be.
#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <string>
#include <vector>

namespace access_check {

struct Figures {
    unsigned tries = 0, refusedByFolder = 0, refusedByMode = 0, refusedByCheck = 0; // of another user
    unsigned places = 0;
    std::size_t answers = 0, texts = 0, textsInTheRunLog = 0;

    struct Paces { // microseconds, the median of the rounds
        long quiet = 0, crowded = 0;
    };
    std::map<std::string, Paces> roundTrips; // at each endpoint
    long worstRound = 0;                     // percent, the crowded pace beside the quiet one of its round
    unsigned crowd = 0;
    long newcomers = 0, slowestNewcomer = 0, mostDescriptors = 0; // milliseconds
    struct Lines {                                                // about clients that were rejected
        unsigned clients = 0;
        long written = 0, seconds = 0, allowed = 0;
    };
    Lines badHellos, shellClients;

    // Of peers that invent terminals.
    long refusedTerminals = 0, forgotten = 0;
    // Milliseconds: a play and a look at the terminals meanwhile, the end of a process whose tables are full.
    long slowestPlay = 0, slowestLook = 0, slowestEnd = 0;
    long mostMemory = 0;                                                // KiB that a process took more than before
    unsigned unfinished = 0, unfinishedTogether = 0, evictedShells = 0; // messages, shell clients
    // Milliseconds: answers, plays, ends of processes.
    long slowestBesideUnfinished = 0, slowestPlayBesideUnfinished = 0, slowestBesideFlood = 0;
    long slowestEndBesideFlood = 0;
    long slowestPlayBesideBroadcasts = 0, slowestEndBesideBroadcasts = 0;
};

void refuseAnotherUser(unsigned tries, Figures& figures);
void occupyPlaces(Figures& figures);
void answerForOthers(Figures& figures);
void sendTexts(Figures& figures);
void crowdTheEndpoints(unsigned rounds, std::chrono::seconds each, Figures& figures);
void takeAllDescriptors();
void fillTheTablesOfServices(unsigned terminals, Figures& figures);
void fillTheTablesOfApplications(unsigned answers, Figures& figures);
// processes: how many leave a message unfinished at the same time.
void starveOthers(unsigned processes, Figures& figures);
// One of them, with the arguments that it was given; returns its exit code.
int leaveOneUnfinished(const std::vector<std::string>& arguments);
void floodWithBroadcasts(unsigned plays, Figures& figures);
void floodTheLog(unsigned hellos, Figures& figures);
void floodTheLogOfAShell(unsigned clients, Figures& figures);

} // namespace access_check
