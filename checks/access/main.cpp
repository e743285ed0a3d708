// Attacks the sockets of real receivers. checks/access/run builds and starts it.
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

// full produces the published figures. quick tries everything at a small size. ordinary skips what needs root or an
// idle machine.
enum class Size { full, quick, ordinary };

void reportEndpoints(const Figures& figures, Report& report) {
    const long tries = figures.tries;
    const std::string all = "all " + std::to_string(tries);
    report.line("connections by another user", tries, "connections", tries > 0, "");
    for (const auto& [what, value] : {std::pair{"refused by the folder", figures.refusedByFolder},
                                      {"refused by the sockets' modes", figures.refusedByMode},
                                      {"refused by the check of the peer's user, and counted", figures.refusedByCheck}})
        report.line(what, value, "connections", value == tries, all);
}

void reportFloods(const Figures& figures, Report& report) {
    report.line("hostile connections beside honest clients", figures.hostile, "connections", figures.hostile > 0, "");
    for (const auto& [endpoint, times] : figures.roundTrips) {
        report.line(endpoint + ": p99 of a round trip without load, median of the rounds", times.idle, "us", true);
        report.line(endpoint + ": p99 of a round trip under load, median of the rounds", times.loaded, "us",
                    times.loaded <= 2 * times.idle, "at most twice that without load");
    }
    report.line("worst round at any socket, p99 under load relative to that without", figures.worstRound, "%", true);
    report.line("new honest clients served", figures.newClients, "clients", figures.newClients > 0,
                "all that connected");
    report.line("slowest of the new honest clients", figures.slowestNewClient, "ms", figures.slowestNewClient <= 2000,
                "at most 2000 ms");
    // 64 silent connections at each of two endpoints, those accepted meanwhile, and the process's own descriptors.
    constexpr long mostDescriptors = 192;
    report.line("most descriptors of a process", figures.mostDescriptors, "descriptors",
                figures.mostDescriptors <= mostDescriptors, "at most " + std::to_string(mostDescriptors));
    for (const auto& [what, lines] :
         {std::pair{"bad hellos", figures.badHellos}, {"clients that a shell evicts", figures.shellClients}}) {
        report.line(what, lines.clients, "clients", lines.clients > 0, "each reported in the log");
        report.line(std::string(what) + ": duration", lines.seconds, "s", true);
        report.line(std::string(what) + ": log lines about them", lines.written, "lines",
                    lines.written <= lines.allowed, "at most 21 a second");
    }
}

void reportTables(const Figures& figures, Report& report) {
    // Messages queued for a client that does not read take up to 64 MiB, the tables the rest.
    constexpr long mostMemory = 128 * 1024;
    report.line("requests for invented terminals that services refused", figures.refusedTerminals, "requests",
                figures.refusedTerminals > 0, "all beyond the limits");
    report.line("answers and terminals dropped from full tables", figures.dropped, "answers", figures.dropped > 0,
                "all beyond the limits");
    for (const auto& [what, time] : {std::pair{"slowest play meanwhile", figures.slowestPlay},
                                     {"slowest list of the terminals meanwhile", figures.slowestList},
                                     {"slowest end of a process with full tables", figures.slowestEnd}})
        report.line(what, time, "ms", time <= 2000, "at most 2000 ms");
    report.line("largest growth of a process's memory", figures.mostMemory, "KiB", figures.mostMemory <= mostMemory,
                "at most " + std::to_string(mostMemory) + " KiB");
}

int runAll(Size size, const std::vector<std::string>& arguments) {
    vdlDebugSetLevels("off"); // of this process: its clients do not handle all messages that they receive
    const bool full = size == Size::full;
    Figures figures;
    std::vector<checks::Scenario> scenarios{
        {"obstacles at socket paths", [&] { placeObstacles(figures); }},
        {"answers from or for another client", [&] { answerForTheService(figures); }},
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
        {"requests that notify all clients", [&] { floodWithBroadcasts(size == Size::ordinary ? 5 : 100, figures); }},
    };
#ifndef __SANITIZE_ADDRESS__ // the undefined behaviour sanitizer beside it needs descriptors itself
    scenarios.push_back({"no free descriptors", [] { takeAllDescriptors(); }});
#endif
    if (geteuid() == 0 || size != Size::ordinary)
        scenarios.insert(scenarios.begin(),
                         checks::Scenario{"another user", [&] { refuseAnotherUser(full ? 1000 : 50, figures); }});
    if (size != Size::ordinary) {
        scenarios.push_back({"a flood of bad hellos", [&] { floodTheLog(full ? 100000 : 5000, figures); }});
        scenarios.push_back({"a flood at a shell", [&] { floodTheLogOfAShell(full ? 20000 : 2000, figures); }});
        scenarios.push_back({"floods of connections at all sockets",
                             [&] { floodEndpoints(full ? 5 : 1, std::chrono::seconds(full ? 20 : 10), figures); }});
    }
    Report report;
    if (const int failure = report.runAll(scenarios, arguments); failure != 0) return failure;
    if (size == Size::ordinary || !Report::onlyOf(arguments).empty()) return report.exitCode();
    reportEndpoints(figures, report);
    report.line("unfinished messages", figures.unfinished, "messages", figures.unfinished > 0,
                "each closed its connection");
    report.line("slowest answer to an honest client beside them", figures.slowestBesideUnfinished, "ms",
                figures.slowestBesideUnfinished <= 2000, "at most 2000 ms");
    report.line("processes with an unfinished message of 16 MiB each", figures.unfinishedTogether, "processes",
                figures.unfinishedTogether > 0, "more than the limit for all peers allows");
    report.line("slowest play beside these processes", figures.slowestPlayBesideUnfinished, "ms",
                figures.slowestPlayBesideUnfinished <= 2000, "at most 2000 ms");
    report.line("idle clients of a shell that still served another one", figures.evictedShells, "clients",
                figures.evictedShells > 0, "");
    report.line("first answer to a client beside a flood of messages", figures.slowestBesideFlood, "ms",
                figures.slowestBesideFlood <= 2000, "at most 2000 ms");
    report.line("slowest play beside requests that notify all clients", figures.slowestPlayBesideBroadcasts, "ms",
                figures.slowestPlayBesideBroadcasts <= 2000, "at most 2000 ms");
    report.line("slowest end of the service beside such requests", figures.slowestEndBesideBroadcasts, "ms",
                figures.slowestEndBesideBroadcasts <= 2000, "at most 2000 ms");
    report.line("slowest end of a process beside a flood", figures.slowestEndBesideFlood, "ms",
                figures.slowestEndBesideFlood <= 2000, "at most 2000 ms");
    report.line("obstacles at socket paths", figures.obstacles, "obstacles", figures.obstacles > 0,
                "each refused or replaced, nothing else changed");
    report.line("answers from or for another client", static_cast<long>(figures.answers), "answers",
                figures.answers > 0, "none delivered");
    report.line("hostile texts, each in both log formats", static_cast<long>(figures.texts), "texts", figures.texts > 0,
                "none unescaped in a log or at a terminal, each delivered unchanged");
    report.line("hostile texts that a command can play", static_cast<long>(figures.textsInTheRunLog), "texts",
                figures.textsInTheRunLog > 0, "each unchanged in the run log");
    reportTables(figures, report);
    reportFloods(figures, report);
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
    return runAll(given("--quick") ? Size::quick : given("--ordinary") ? Size::ordinary : Size::full, arguments);
}
