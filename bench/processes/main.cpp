// Communication between processes. Compares round trips and small notifications one way with a plain socket, sd-bus and
// gRPC, and both between hosts with a plain TLS stream. Also measures a play request's complete path through a
// framework process.
#include "common/report.h"
#include "framework.h"
#include "other-host.h"
#include "peer-process.h"
#include "private-folder.h"
#include "proxy-client.h"
#include "transport.h"
#include "tv-service.h"
#include "wake-up.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <functional>
#include <string>
#include <vector>

namespace bench {
namespace {

const Report report("processes");

// The text sizes of notifications between hosts.
constexpr std::size_t smallText [[maybe_unused]] = 64, largeText [[maybe_unused]] = 64 * 1024;

// A side whose round is the median of `calls` single calls.
Side singleCalls(std::string name, std::size_t calls, std::function<double()> call) {
    return {std::move(name), [calls, call = std::move(call)] {
                std::vector<double> durations(calls);
                std::generate(durations.begin(), durations.end(), call);
                return summaryOf(std::move(durations)).median;
            }};
}

struct Peers {
    explicit Peers(const PrivateFolder& folder [[maybe_unused]]) {
        transports.push_back(std::make_unique<ProxyClient>());
        transports.push_back(rawSocket());
#ifdef BENCH_SD_BUS
        transports.push_back(sdBus());
#endif
#ifdef BENCH_GRPC
        transports.push_back(grpcPeer(folder.path().string()));
#endif
    }
    void connect() {
        for (const auto& transport : transports) transport->connect();
    }

    PeerProcess service{serveTvService};
    std::vector<std::unique_ptr<Transport>> transports; // own, the limit, and the installed peers
};

Figures sumOf(std::string name, const Figures& a, const Figures& b) {
    Figures sum{std::move(name), a.rounds};
    for (std::size_t i = 0; i < sum.rounds.size(); ++i) sum.rounds[i] += b.rounds[i];
    return sum;
}

void notePeers() {
#ifndef BENCH_SD_BUS
    report.note("sd-bus omitted: built without libsystemd");
#endif
#ifndef BENCH_GRPC
    report.note("gRPC omitted: built without its library or plugin");
#endif
#ifndef BENCH_TLS
    report.note("between hosts omitted: built without connections to other hosts");
#else
    report.note("between hosts, an info is " + std::to_string(infoBytes(smallText)) + " bytes and a text " +
                std::to_string(infoBytes(largeText)) + ", on both sides");
#endif
    report.note("a request is " + std::to_string(load().requestBytes) + " bytes and its answer " +
                std::to_string(load().answerBytes) + ", on all sides");
}

void roundTrips(const Options& options) {
    pinToOneCpu();
    const PrivateFolder folder;
    Peers peers(folder);
    withFramework([&](const auto& play) {
        peers.connect();
        WakeUp wakeUp;
        const std::size_t calls = options.quick ? 200 : 1000;
        std::vector<Side> sides;
        for (const auto& transport : peers.transports)
            sides.push_back(singleCalls(transport->name(), calls, [&] { return transport->roundTrip(); }));
        sides.push_back(singleCalls("wake-up", calls, [&] { return wakeUp.once(); }));
        sides.push_back(singleCalls("play", calls, play));
        const auto figures = interleaved(sides, options.rounds({3, 31}));

        const Figures& own = of(figures, "own");
        for (const Figures& side : figures)
            report.figures(side.side == "play" ? "play-request" : "round-trip", side, {"ns", "call"});
        report.ratio("round-trip", own, of(figures, "raw socket"), Goal{6, 1.8});
        for (std::size_t i = 2; i < peers.transports.size(); ++i)
            report.ratio("round-trip", own, of(figures, peers.transports[i]->name()), Goal{6, 1.0});
        report.ratio("play-request", of(figures, "play"), sumOf("round trip and wake-up", own, of(figures, "wake-up")),
                     Goal{7, 1.25});
    });
}

void oneWay(const Options& options, const std::string& caseName) {
    const PrivateFolder folder;
    const PeerProcess service(serveTvService);
    std::vector<std::unique_ptr<Transport>> transports;
    transports.push_back(std::make_unique<ProxyClient>());
#ifdef BENCH_SD_BUS
    transports.push_back(sdBus());
#endif
    const std::size_t count = options.quick ? 5000 : 30000;
    std::vector<Side> sides;
    for (const auto& transport : transports) {
        transport->connect();
        sides.push_back({transport->name(),
                         [&transport, count] { return transport->notifications(count) / static_cast<double>(count); }});
    }
    const auto figures = interleaved(sides, options.rounds({2, 21}));
    for (const Figures& side : figures) report.figures(caseName, side, {"ns", "message"});
    // The ratio of the peer's time per message to ours is the ratio of our messages per second to the peer's.
    if (figures.size() > 1) report.ratio(caseName, figures[1], figures[0], Goal{9, 3.0, Goal::AtLeast});
}

#ifdef BENCH_TLS
// messages: notifications at a time; 0 for round trips. They are less than 2 MiB together, so that the queue keeps its
// memory and the case measures the transport.
struct BetweenHosts {
    const char* name;
    std::size_t messages, textBytes;
};
constexpr BetweenHosts betweenHosts[] = {{"round-trip", 0, 0}, {"texts", 16, largeText}, {"infos", 1000, smallText}};

// Runs all cases on all CPUs or on one, with a TLS stream between the same kinds of processes as the other side.
void compareHosts(const Options& options, const std::string& name, const std::function<void()>& prepare) {
    std::vector<BetweenHosts> selected;
    for (const BetweenHosts& each : betweenHosts)
        if (options.wants(name + each.name)) selected.push_back(each);
    if (selected.empty()) return;
    inOwnProcess([&] {
        prepare();
        const PrivateFolder folder;
        configureRemoteTvService(folder.path());
        const PeerProcess service(serveTvService);
        ProxyClient own;
        const auto limit = tlsStream();
        Transport* const transports[] = {&own, limit.get()};
        for (Transport* transport : transports) transport->connect();
        for (const BetweenHosts& each : selected) {
            std::vector<Side> sides;
            for (Transport* transport : transports)
                sides.push_back(each.messages == 0 ? singleCalls(transport->name(), options.quick ? 200 : 1000,
                                                                 [=] { return transport->roundTrip(); })
                                                   : singleCalls(transport->name(), options.quick ? 8 : 32, [=] {
                                                         return transport->infos(each.messages, each.textBytes) /
                                                                static_cast<double>(each.messages);
                                                     }));
            const auto figures = interleaved(sides, options.rounds({3, 31}));
            for (const Figures& side : figures)
                report.figures(name + each.name, side, {"ns", each.messages == 0 ? "call" : "message"});
            report.ratio(name + each.name, figures[0], figures[1], Goal{15, 1.25});
        }
    });
}
#endif

void run(const Options& options) {
    notePeers();
    if (options.wants("round-trip") || options.wants("play-request")) inOwnProcess([&] { roundTrips(options); });
    if (options.wants("notifications/free")) inOwnProcess([&] { oneWay(options, "notifications/free"); });
    if (options.wants("notifications/one-cpu"))
        inOwnProcess([&] {
            pinToOneCpu();
            oneWay(options, "notifications/one-cpu");
        });
#ifdef BENCH_TLS
    compareHosts(options, "between-hosts/free/", [] {});
    compareHosts(options, "between-hosts/one-cpu/", pinToOneCpu);
#endif
}

} // namespace
} // namespace bench

int main(int argc, char** argv) {
    try {
        bench::run(bench::Options::of(argc, argv));
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "processes_bench: %s\n", error.what());
        return 1;
    }
}
