// Kills, freezes and confuses the processes of receivers at every step of a request, more than a thousand times. Checks
// that every request is finished or dropped, that the next one is served, and that nothing leaks.
#include "../report.h"
#include "fault-injector.h"
#include "process-size.h"
#include "situation.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdio>
#include <iostream>
#include <latch>
#include <map>
#include <memory>
#include <random>
#include <thread-safety/mutex.h>
#include <thread>

namespace {

using namespace killed;

// By how much an idle process may grow. Its heap is compared when the control application's histories hold the same.
// Resident memory may step: the C library returns a freed block to the system only if no allocated block lies above it.
struct Bounds {
    long heapBlocks, heapBytes;
    long kibibytes; // resident, over all situations, without the largest step
};
// Over the 35 situations of a receiver.
constexpr Bounds boundsOfAllSituations{12, 8 * 1024, 16};
// Per thousand kills: a block at every fourth of them, 32 bytes at each. A receiver survives about 330, so one page
// leaked at each makes 1 MiB.
constexpr Bounds boundsOfKills{250, 32 * 1024, 512};

// By how much the processes of the receivers have grown at most.
struct Growth {
    long descriptors = 0, threads = 0;                // from the first measurement to the last
    long heapBlocks = 0, heapBytes = 0;               // the same
    long blocksPerThousand = 0, bytesPerThousand = 0; // the same per thousand situations
    long kibibytes = 0;                               // never returned to the system, without the largest step

    void merge(const Growth& other) {
        for (const auto field : {&Growth::descriptors, &Growth::threads, &Growth::heapBlocks, &Growth::heapBytes,
                                 &Growth::blocksPerThousand, &Growth::bytesPerThousand, &Growth::kibibytes})
            this->*field = std::max(this->*field, other.*field);
    }
    // sizes: of one process, after each situation but the first few. The first and the last with equal histories.
    void add(const std::vector<IdleSize>& sizes) {
        const IdleSize &first = sizes.front(), &last = sizes.back();
        Growth growth{last.descriptors - first.descriptors, last.threads - first.threads,
                      last.heapBlocks - first.heapBlocks, last.heapBytes - first.heapBytes};
        growth.blocksPerThousand = growth.heapBlocks * 1000 / static_cast<long>(sizes.size());
        growth.bytesPerThousand = growth.heapBytes * 1000 / static_cast<long>(sizes.size());
        growth.kibibytes = neverReturned(sizes);
        merge(growth);
        if (growth.kibibytes <= boundsOfAllSituations.kibibytes) return; // otherwise print all, for the investigation
        std::cout << "KiB after each situation:";
        for (const IdleSize& size : sizes) std::cout << ' ' << size.kibibytes;
        std::cout << std::endl;
    }

private:
    // The last quarter only shows what is returned to the system later.
    static long neverReturned(const std::vector<IdleSize>& sizes) {
        std::vector<long> least(sizes.size()); // from each measurement on
        long smallest = sizes.back().kibibytes;
        for (std::size_t i = sizes.size(); i-- > 0;) least[i] = smallest = std::min(smallest, sizes[i].kibibytes);
        long largestStep = 0;
        const std::size_t end = sizes.size() - sizes.size() / 4;
        for (std::size_t i = 1; i < end; ++i) largestStep = std::max(largestStep, least[i] - least[i - 1]);
        return least[end - 1] - least[0] - largestStep;
    }
};

// The runs to do and their results, shared by all threads.
class Campaign {
public:
    struct Results {
        std::map<std::string, unsigned> reached; // situations, exactly at the intended moment
        unsigned runs = 0, exact = 0, dropped = 0, failures = 0, compared = 0;
        std::chrono::milliseconds slowest{0};
        std::map<Part, Growth> growth; // of the surviving processes
    };

    Campaign(Part victim, unsigned rounds, bool onlyKilled) : victim_(victim) {
        std::vector<Situation> all = situationsOf(victim);
        if (onlyKilled) std::erase_if(all, [](const Situation& each) { return each.fault != Fault::killed; });
        situations = all.size();
        std::mt19937 random(1);
        for (unsigned round = 0; round < rounds; ++round) {
            auto shuffled = all;
            std::shuffle(shuffled.begin(), shuffled.end(), random);
            todo_.insert(todo_.end(), shuffled.begin(), shuffled.end());
        }
    }

    // Runs situations one after the other in one receiver, until none is left. Measures the surviving processes after
    // each situation but the first few. Begins once all receivers are ready, as starting them loads the machine.
    void work(std::size_t warmUp, std::latch& ready) {
        std::unique_ptr<FaultInjector> injector;
        try {
            injector = std::make_unique<FaultInjector>();
        } catch (const std::exception& error) {
            fail("at the start", error.what());
        }
        ready.arrive_and_wait();
        std::map<Part, std::vector<IdleSize>> sizes;
        std::size_t survived = 0;
        unsigned number = 0;
        while (const std::optional<Situation> situation = next(number)) {
            try {
                if (!injector) {
                    injector = std::make_unique<FaultInjector>();
                    sizes.clear();
                    survived = 0;
                }
                record(*situation, injector->run(*situation, number));
                if (++survived < warmUp) continue;
                if (survived == warmUp) injector->fillHistories();
                for (const Part part : survivors()) sizes[part].push_back(injector->idleSize(part));
            } catch (const std::exception& error) {
                fail(textOf(*situation), error.what() + ('\n' + (injector ? injector->logTails() : "")));
                injector.reset();
            }
        }
        if (!injector) return;
        try {
            if (!sizes.empty()) compare(*injector, sizes);
        } catch (const std::exception& error) {
            fail("after the last situation", error.what());
        }
        if (const std::string problems = injector->end(); !problems.empty()) fail("at the end", problems);
    }

    std::size_t situations = 0;
    std::size_t total() const { return todo_.size(); }
    std::size_t done() const { return std::min<std::size_t>(next_, todo_.size()); }

    Results results() {
        const thread_safety::LockGuard lock(mutex_);
        return results_;
    }

private:
    // The first exchange of the framework process is with an MM service that is restarted for it.
    std::vector<Part> survivors() const {
        switch (victim_) {
            case Part::tvService:
                return {Part::mmService, Part::frameHost};
            case Part::mmService:
                return {Part::tvService, Part::frameHost};
            default:
                return {Part::tvService};
        }
    }
    void compare(FaultInjector& injector, std::map<Part, std::vector<IdleSize>>& sizes) {
        injector.fillHistories();
        for (auto& [part, measured] : sizes) measured.push_back(injector.idleSize(part));
        const thread_safety::LockGuard lock(mutex_);
        for (const auto& [part, measured] : sizes) results_.growth[part].add(measured);
        ++results_.compared;
    }
    std::optional<Situation> next(unsigned& number) {
        number = next_++;
        if (number >= todo_.size()) return std::nullopt;
        return todo_[number];
    }
    void record(const Situation& situation, const Outcome& outcome) {
        const thread_safety::LockGuard lock(mutex_);
        ++results_.runs;
        results_.dropped += outcome.dropped;
        results_.slowest = std::max(results_.slowest, outcome.nextPlay);
        if (!outcome.exact) return;
        ++results_.exact;
        ++results_.reached[textOf(situation)];
    }
    void fail(const std::string& where, const std::string& what) {
        const thread_safety::LockGuard lock(mutex_);
        ++results_.failures;
        std::cout << "FAILED: " << where << ": " << what << std::endl;
    }

    const Part victim_;
    std::vector<Situation> todo_;
    std::atomic<unsigned> next_{0};
    thread_safety::Mutex mutex_;
    Results results_ TVSA_GUARDED_BY(mutex_);
};

} // namespace

int main(int argc, char** argv) {
    CLI::App options{"Kills, freezes and confuses the processes of receivers at every step of a request."};
    unsigned rounds = 12, receivers = 24;
    unsigned kills = 0;
    std::size_t warmUp = 10;
    options.add_option("--rounds", rounds, "Runs of each situation")->check(CLI::PositiveNumber);
    options.add_option("--kills", kills, "Only kill, at least that often, and report growth per thousand kills");
    options.add_option("--receivers", receivers, "Receivers at a time")->check(CLI::Range(3, 64));
    options.add_option("--warm-up", warmUp, "Situations before a receiver's processes are first measured");
    CLI11_PARSE(options, argc, argv);

    const bool onlyKilled = kills > 0;
    constexpr unsigned killsPerRound = 18; // three victims at six moments
    if (onlyKilled) rounds = (kills + killsPerRound - 1) / killsPerRound;
    Campaign tv(Part::tvService, rounds, onlyKilled), mm(Part::mmService, rounds, onlyKilled),
        host(Part::frameHost, rounds, onlyKilled);
    Campaign* const campaigns[] = {&tv, &mm, &host};
    std::latch ready(receivers);
    std::vector<std::thread> threads;
    // The framework process's situations take about a fifth of the time.
    const unsigned forHost = std::max(1U, receivers / 5);
    for (unsigned i = 0; i < receivers; ++i)
        threads.emplace_back([&, i] { (i < forHost ? host : i % 2 == 0 ? tv : mm).work(warmUp, ready); });
    const auto sum = [&](auto of) {
        long all = 0;
        for (const Campaign* campaign : campaigns) all += static_cast<long>(of(*campaign));
        return all;
    };
    const long total = sum([](auto& c) { return c.total(); });
    const auto situations = sum([](auto& c) { return c.situations; });
    std::atomic<bool> ended{false};
    std::thread progress([&] {
        for (unsigned tick = 1; !ended; ++tick) {
            std::this_thread::sleep_for(std::chrono::milliseconds(500));
            if (tick % 20 == 0)
                std::cout << sum([](auto& c) { return c.done(); }) << " of " << total << " runs started" << std::endl;
        }
    });
    for (std::thread& thread : threads) thread.join();
    ended = true;
    progress.join();

    Campaign::Results results[] = {tv.results(), mm.results(), host.results()};
    const auto sumOf = [&](auto of) {
        long all = 0;
        for (const auto& each : results) all += static_cast<long>(of(each));
        return all;
    };
    std::chrono::milliseconds slowest{0};
    for (const auto& each : results) slowest = std::max(slowest, each.slowest);

    checks::Report report;
    const auto line = [&](const std::string& what, long value, const std::string& unit, long low, long high,
                          const std::string& bound) {
        report.line(what, value, unit, value >= low && value <= high, bound);
    };
    constexpr long most = 1L << 40;
    line("runs", sumOf([](auto& r) { return r.runs; }), "runs", total, total, "all that were started");
    line("runs exactly at the intended moment", sumOf([](auto& r) { return r.exact; }), "runs", total * 9 / 10, total,
         "at least nine of ten");
    line("situations reached", sumOf([](auto& r) { return r.reached.size(); }), "situations", situations, situations,
         "all");
    line("failed runs", sumOf([](auto& r) { return r.failures; }), "runs", 0, 0, "none");
    line("requests dropped in time", sumOf([](auto& r) { return r.dropped; }), "requests", 0, most,
         "after 5 s, within 7.5 s");
    line("slowest next play", slowest.count(), "ms", 0, 1000, "at most 1000 ms");
    line("idle receivers compared", sumOf([](auto& r) { return r.compared; }), "receivers", 1, most, "");
    const Bounds& bounds = onlyKilled ? boundsOfKills : boundsOfAllSituations;
    const std::string per = onlyKilled ? " per 1,000 kills" : "";
    for (const Part part : receiver::allParts) {
        Growth growth;
        for (auto& each : results) growth.merge(each.growth[part]);
        const std::string of = std::string(", ") + nameOf(part);
        line("growth of descriptors" + of, growth.descriptors, "descriptors", 0, 0, "none");
        line("growth of threads" + of, growth.threads, "threads", 0, 0, "none");
        const auto bounded = [&](const std::string& what, long value, const std::string& unit, long bound) {
            line(what + of, value, unit, -most, bound, "at most " + std::to_string(bound));
        };
        bounded("growth of heap blocks" + per, onlyKilled ? growth.blocksPerThousand : growth.heapBlocks, "blocks",
                bounds.heapBlocks);
        bounded("growth of the heap" + per, onlyKilled ? growth.bytesPerThousand : growth.heapBytes, "bytes",
                bounds.heapBytes);
        bounded("growth of resident memory", growth.kibibytes, "KiB", bounds.kibibytes);
    }
    return report.exitCode();
}
