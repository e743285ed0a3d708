// Measures the time from plain records to wire format and back to new plain records, for the product's codec, the
// limit, and the installed peers, in turns.
#include "codec/cases.h"
#include "common/report.h"

#include <host/marshaller.h>

#include <exception>
#include <iostream>
#include <thread>
#include <unistd.h>

namespace bench {
namespace {

constexpr Goal lists{1, 1.25}, audio{2, 1.10}, swapped{5, 1.3};
constexpr Goal flat{0, 1.15}; // 0: growth, which has no number
constexpr Goal ahead(const Goal& goal) { return {goal.number, 1.0}; }

// Shorter than a thread's usual time slice, and much longer than a reading of the clock.
constexpr auto roundLength = std::chrono::milliseconds(1);

Side sideOf(const Codec& codec, const std::string& name) {
    return timedSide<ThreadClock>(codec.name, recordsOf(name), roundLength, caseOf(codec, name));
}

void compareCodecs(const Options& options, const Report& report, const std::string& name, Goal goal) {
    if (!options.wants(name)) return;
    std::vector<Side> sides{sideOf(ownCodec(), name), sideOf(limitCodec(), name)};
    for (const Codec& peer : peers()) sides.push_back(sideOf(peer, name));
    const auto all = interleaved(sides, options.rounds({3, 61}));
    for (const Figures& side : all) report.figures(name, side, {"ns", "record"});
    report.ratio(name, of(all, "own"), of(all, "limit"), goal);
    for (const Codec& peer : peers()) report.ratio(name, of(all, "own"), of(all, peer.name), ahead(goal));
}

void compareByteOrders(const Options& options, const Report& report, const std::string& name) {
    const std::string label = "received/" + name;
    if (!options.wants(label)) return;
    const auto all =
        interleaved({sideOf(otherOrderCodec(), name), sideOf(ownOrderCodec(), name)}, options.rounds({3, 61}));
    for (const Figures& side : all) report.figures(label, side, {"ns", "record"});
    report.ratio(label, all[0], all[1], swapped);
}

// The cost of a record in a message of 10,000 relative to that in one of 10. The limit shows how much of the difference
// is due to the machine: 10,000 records exceed its inner caches.
void compareSizes(const Options& options, const Report& report, const std::string& record) {
    const std::string label = "growth/" + record + "/10-10000";
    if (!options.wants(label)) return;
    std::vector<Side> sides;
    for (const Codec& codec : {ownCodec(), limitCodec()}) {
        for (const char* count : {"10000", "10"}) {
            sides.push_back(sideOf(codec, record + "/" + count));
            sides.back().name += std::string("/") + count;
        }
    }
    const auto before = host::flatHeapUsage();
    const auto all = interleaved(sides, options.rounds({2, 31}));
    for (const Figures& side : all) report.figures(label, side, {"ns", "record"});
    report.ratio(label, all[0], all[1], flat);
    report.ratio(label, all[2], all[3]);
    const auto after = host::flatHeapUsage();
    report.value(label, "own/flat memory kept", static_cast<double>(after.bytes) - static_cast<double>(before.bytes),
                 {"byte", "run"}, Goal{flat.number, 0});
}

void run(const Options& options) {
    pinToOneCpu();
    const Report report("codec");
    for (const std::string& missing : std::vector<std::string>{BENCH_MISSING_CODECS})
        report.note(missing + " is not installed: omitted");
    for (const char* record : {"request", "info"})
        for (const char* count : {"1", "5", "100", "1000"})
            compareCodecs(options, report, std::string(record) + "/" + count, lists);
    compareCodecs(options, report, "audio-info/8", audio);
    for (const char* name : {"request/1", "request/100", "info/100", "audio-info/8"})
        compareByteOrders(options, report, name);
    for (const char* record : {"request", "info"}) compareSizes(options, report, record);
}

} // namespace
} // namespace bench

int main(int argc, char** argv) {
    try {
        std::thread([] { pause(); }).detach(); // as in a receiver: in a process with one thread, locks cost nothing
        bench::run(bench::Options::of(argc, argv));
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "codec_bench: " << error.what() << '\n';
        return 1;
    }
}
