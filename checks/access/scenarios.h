// The attacks on the sockets of a receiver. Each throws std::exception with what was wrong.
#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <string>
#include <vector>

namespace access_check {

struct Figures {
    unsigned tries = 0, refusedByFolder = 0, refusedByMode = 0, refusedByCheck = 0; // of another user
    unsigned obstacles = 0;
    std::size_t answers = 0, texts = 0, textsInTheRunLog = 0;

    struct RoundTrips { // microseconds, median of the rounds
        long idle = 0, loaded = 0;
    };
    std::map<std::string, RoundTrips> roundTrips; // at each endpoint
    long worstRound = 0;                          // percent, time under load relative to the idle one of its round
    unsigned hostile = 0;                         // connections
    long newClients = 0, slowestNewClient = 0;    // of honest clients; milliseconds
    long mostDescriptors = 0;
    struct Lines { // about rejected clients
        unsigned clients = 0;
        long written = 0, seconds = 0, allowed = 0;
    };
    Lines badHellos, shellClients;

    // Of peers that invent terminals.
    long refusedTerminals = 0, dropped = 0;
    // Milliseconds: a play and a list of the terminals meanwhile, the end of a process whose tables are full.
    long slowestPlay = 0, slowestList = 0, slowestEnd = 0;
    long mostMemory = 0;                                                // largest growth of a process, in KiB
    unsigned unfinished = 0, unfinishedTogether = 0, evictedShells = 0; // messages, processes, shell clients
    // Milliseconds: answers, plays, ends of processes.
    long slowestBesideUnfinished = 0, slowestPlayBesideUnfinished = 0, slowestBesideFlood = 0;
    long slowestEndBesideFlood = 0;
    long slowestPlayBesideBroadcasts = 0, slowestEndBesideBroadcasts = 0;
};

void refuseAnotherUser(unsigned tries, Figures& figures);
void placeObstacles(Figures& figures);
void answerForTheService(Figures& figures);
void sendTexts(Figures& figures);
void floodEndpoints(unsigned rounds, std::chrono::seconds each, Figures& figures);
void takeAllDescriptors();
void fillTheTablesOfServices(unsigned terminals, Figures& figures);
void fillTheTablesOfApplications(unsigned answers, Figures& figures);
// processes: how many leave a message unfinished at the same time.
void starveOthers(unsigned processes, Figures& figures);
// The main function of such a process, with the arguments after "--unfinished". Returns its exit code.
int leaveOneUnfinished(const std::vector<std::string>& arguments);
void floodWithBroadcasts(unsigned plays, Figures& figures);
void floodTheLog(unsigned hellos, Figures& figures);
void floodTheLogOfAShell(unsigned clients, Figures& figures);

} // namespace access_check
