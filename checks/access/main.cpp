// Tries everything at the sockets of real receivers that their users would not; checks/access/run builds and starts it.
#include "../report.h"
#include "flood.h"
#include "scenarios.h"

#include <vdl/debug.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <exception>
#include <functional>
#include <iostream>
#include <unistd.h>

namespace {

using namespace access_check;
using checks::Report;

// full is what the figures are made of, quick a trial of everything, ordinary what needs neither root nor a quiet
// machine.
enum class Size { full, quick, ordinary };

void reportEndpoints(const Figures& figures, Report& report) {
    const long tries = figures.tries;
    const std::string all = "all " + std::to_string(tries);
    report.line("another user's connections", tries, "connections", tries > 0, "");
    for (const auto& [what, value] : {std::pair{"refused by the folder", figures.refusedByFolder},
                                      {"refused by the sockets' modes", figures.refusedByMode},
                                      {"refused by the check of the peer, and counted", figures.refusedByCheck}})
        report.line(what, value, "connections", value == tries, all);
}

void reportCrowds(const Figures& figures, Report& report) {
    report.line("unwanted connections among honest clients", figures.crowd, "connections", figures.crowd > 0, "");
    for (const auto& [endpoint, paces] : figures.roundTrips) {
        report.line(endpoint + ": p99 of a round trip, quiet, median of the rounds", paces.quiet, "us", true);
        report.line(endpoint + ": p99 of a round trip, crowded, median of the rounds", paces.crowded, "us",
                    paces.crowded <= 2 * paces.quiet, "at most twice the quiet one");
    }
    report.line("worst round at any socket, crowded beside quiet", figures.worstRound, "%", true);
    report.line("honest newcomers served", figures.newcomers, "clients", figures.newcomers > 0, "all that came");
    report.line("slowest of them", figures.slowestNewcomer, "ms", figures.slowestNewcomer <= 2000, "at most 2000 ms");
    // 64 without a word at each of two endpoints, those that were accepted meanwhile, and the process's own.
    constexpr long mostDescriptors = 192;
    report.line("most descriptors that a process had", figures.mostDescriptors, "descriptors",
                figures.mostDescriptors <= mostDescriptors, "at most " + std::to_string(mostDescriptors));
    for (const auto& [what, lines] :
         {std::pair{"bad hellos", figures.badHellos}, {"clients that a shell evicts", figures.shellClients}}) {
        report.line(what, lines.clients, "clients", lines.clients > 0, "each told of");
        report.line(std::string(what) + ": seconds that they took", lines.seconds, "s", true);
        report.line(std::string(what) + ": lines about them", lines.written, "lines", lines.written <= lines.allowed,
                    "at most 21 a second");
    }
}

void reportTables(const Figures& figures, Report& report) {
    // What waits for a client that does not read takes up to 64 MiB, the tables the rest.
    constexpr long mostMemory = 128 * 1024;
    report.line("requests for invented terminals that services refused", figures.refusedTerminals, "requests",
                figures.refusedTerminals > 0, "all beyond the bounds");
    report.line("answers and terminals that were forgotten", figures.forgotten, "answers", figures.forgotten > 0,
                "all beyond the bounds");
    for (const auto& [what, time] : {std::pair{"slowest play among them", figures.slowestPlay},
                                     {"slowest look at the terminals among them", figures.slowestLook},
                                     {"slowest end of a process with full tables", figures.slowestEnd}})
        report.line(what, time, "ms", time <= 2000, "at most 2000 ms");
    report.line("most memory that a process took more", figures.mostMemory, "KiB", figures.mostMemory <= mostMemory,
                "at most " + std::to_string(mostMemory) + " KiB");
}

int runAll(Size size) {
    vdlDebugSetLevels("off"); // of this process, whose clients do not hear all that they are told
    const bool full = size == Size::full;
    Figures figures;
    std::vector<std::pair<const char*, std::function<void()>>> scenarios{
        {"what lies where a socket belongs", [&] { occupyPlaces(figures); }},
        {"answers in others' places", [&] { answerForOthers(figures); }},
        {"hostile texts", [&] { sendTexts(figures); }},
        {"requests for invented terminals",
         [&] {
             fillTheTablesOfServices(full ? 400000 : size == Size::quick ? 20000 : 2000, figures);
         }},
        {"answers for invented terminals",
         [&] {
             fillTheTablesOfApplications(full ? 200000 : size == Size::quick ? 20000 : 2000, figures);
         }},
        {"unfinished messages, idle shells, a flood of messages",
         [&] { starveOthers(size == Size::ordinary ? 0 : 30, figures); }},
        {"requests that all are told of", [&] { floodWithBroadcasts(size == Size::ordinary ? 5 : 100, figures); }},
    };
#ifndef __SANITIZE_ADDRESS__ // beside which undefined behaviour is looked for, with descriptors of its own
    scenarios.emplace_back("no descriptors", [] { takeAllDescriptors(); });
#endif
    if (geteuid() == 0 || size != Size::ordinary)
        scenarios.insert(scenarios.begin(), {"another user", [&] { refuseAnotherUser(full ? 1000 : 50, figures); }});
    if (size != Size::ordinary) {
        scenarios.emplace_back("a flood of bad hellos", [&] { floodTheLog(full ? 100000 : 5000, figures); });
        scenarios.emplace_back("a flood at a shell", [&] { floodTheLogOfAShell(full ? 20000 : 2000, figures); });
        scenarios.emplace_back("crowds",
                               [&] { crowdTheEndpoints(full ? 5 : 1, std::chrono::seconds(full ? 20 : 10), figures); });
    }
    Report report;
    for (const auto& [name, run] : scenarios) report.run(name, run);
    if (size == Size::ordinary) return report.exitCode();
    reportEndpoints(figures, report);
    report.line("messages that were never finished", figures.unfinished, "messages", figures.unfinished > 0,
                "each ended its connection");
    report.line("slowest honest answer beside them", figures.slowestBesideUnfinished, "ms",
                figures.slowestBesideUnfinished <= 2000, "at most 2000 ms");
    report.line("processes that left one of 16 MiB together", figures.unfinishedTogether, "processes",
                figures.unfinishedTogether > 0, "more than the bound for all peers allows");
    report.line("slowest play beside them", figures.slowestPlayBesideUnfinished, "ms",
                figures.slowestPlayBesideUnfinished <= 2000, "at most 2000 ms");
    report.line("idle clients of a shell that served another one", figures.evictedShells, "clients",
                figures.evictedShells > 0, "");
    report.line("first answer to a client beside a flood of messages", figures.slowestBesideFlood, "ms",
                figures.slowestBesideFlood <= 2000, "at most 2000 ms");
    report.line("slowest play beside requests that all are told of", figures.slowestPlayBesideBroadcasts, "ms",
                figures.slowestPlayBesideBroadcasts <= 2000, "at most 2000 ms");
    report.line("slowest end of the service beside them", figures.slowestEndBesideBroadcasts, "ms",
                figures.slowestEndBesideBroadcasts <= 2000, "at most 2000 ms");
    report.line("slowest end of a process beside a flood", figures.slowestEndBesideFlood, "ms",
                figures.slowestEndBesideFlood <= 2000, "at most 2000 ms");
    report.line("obstacles where a socket belongs", figures.places, "obstacles", figures.places > 0,
                "each refused or replaced, nothing harmed");
    report.line("answers of those who were not asked", static_cast<long>(figures.answers), "answers",
                figures.answers > 0, "none delivered");
    report.line("hostile texts, each in both forms of the log", static_cast<long>(figures.texts), "texts",
                figures.texts > 0, "none raw in a log or at a terminal, each told whole");
    report.line("those of them that a command can play", static_cast<long>(figures.textsInTheRunLog), "texts",
                figures.textsInTheRunLog > 0, "each whole in the run log");
    reportTables(figures, report);
    reportCrowds(figures, report);
    return report.exitCode();
}

} // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    if (!arguments.empty() && arguments[0] == "--flood") return flood({std::next(arguments.begin()), arguments.end()});
    if (!arguments.empty() && arguments[0] == "--unfinished")
        return leaveOneUnfinished({std::next(arguments.begin()), arguments.end()});
    const auto given = [&](const char* option) {
        return std::find(arguments.begin(), arguments.end(), option) != arguments.end();
    };
    return runAll(given("--quick") ? Size::quick : given("--ordinary") ? Size::ordinary : Size::full);
}
