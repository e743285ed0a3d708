// Ends, stops and confuses the processes of receivers at every step of a request, a thousand times and more, and looks
// whether every request comes to an end, the next one is served, and nothing is left behind.
#include "../report.h"
#include "ordeal.h"
#include "process-size.h"
#include "situation.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <atomic>
#include <cstdio>
#include <iostream>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <thread>

namespace {

using namespace killed;

// Beyond what the allocator takes and gives back as it goes.
constexpr long memoryBound = 1024;

struct Growth {
    long descriptors = 0, threads = 0, kibibytes = 0;
    void take(const ProcessSize& before, const ProcessSize& after) {
        descriptors = std::max(descriptors, after.descriptors - before.descriptors);
        threads = std::max(threads, after.threads - before.threads);
        kibibytes = std::max(kibibytes, after.kibibytes - before.kibibytes);
    }
};

// What is to be done and what came of it, for all threads.
class Campaign {
public:
    Campaign(const std::vector<Situation>& situations, unsigned rounds) {
        std::mt19937 random(1);
        for (unsigned round = 0; round < rounds; ++round) {
            auto shuffled = situations;
            std::shuffle(shuffled.begin(), shuffled.end(), random);
            todo_.insert(todo_.end(), shuffled.begin(), shuffled.end());
        }
    }

    // Situations one after the other in one receiver, until there are none left. The receiver's lasting processes are
    // compared with what they were after the first few.
    void work(const std::vector<Part>& lasting, std::size_t warmUp) {
        std::unique_ptr<Ordeal> ordeal;
        std::vector<ProcessSize> before;
        std::size_t endured = 0;
        std::optional<Situation> situation;
        unsigned number = 0;
        const auto measure = [&] {
            std::vector<ProcessSize> sizes;
            sizes.reserve(lasting.size());
            for (const Part part : lasting) sizes.push_back(sizeOf(ordeal->processId(part)));
            return sizes;
        };
        const auto end = [&] {
            if (!before.empty()) {
                const auto after = measure();
                const std::lock_guard lock(mutex_);
                for (std::size_t i = 0; i < after.size(); ++i) growth.take(before[i], after[i]);
                ++compared;
            }
            if (const std::string complaints = ordeal->end(); !complaints.empty()) fail("at the end", complaints);
        };
        while ((situation = next(number))) {
            try {
                if (!ordeal) {
                    ordeal = std::make_unique<Ordeal>();
                    before.clear();
                    endured = 0;
                }
                record(*situation, ordeal->endure(*situation, number));
                if (++endured == warmUp) before = measure();
            } catch (const std::exception& error) {
                fail(textOf(*situation), error.what() + ('\n' + (ordeal ? ordeal->logTails() : "")));
                ordeal.reset();
            }
        }
        if (ordeal) end();
    }

    std::size_t total() const { return todo_.size(); }
    std::size_t done() const { return std::min<std::size_t>(next_, todo_.size()); }

    std::map<std::string, unsigned> reached; // at the very moment
    unsigned runs = 0, dropped = 0, failures = 0, compared = 0;
    std::chrono::milliseconds slowest{0};
    Growth growth;

private:
    std::optional<Situation> next(unsigned& number) {
        number = next_++;
        if (number >= todo_.size()) return std::nullopt;
        return todo_[number];
    }
    void record(const Situation& situation, const Outcome& outcome) {
        const std::lock_guard lock(mutex_);
        ++runs;
        dropped += outcome.dropped ? 1 : 0;
        slowest = std::max(slowest, outcome.nextPlay);
        if (outcome.exact) ++reached[textOf(situation)];
    }
    void fail(const std::string& where, const std::string& what) {
        const std::lock_guard lock(mutex_);
        ++failures;
        std::cout << "FAILED: " << where << ": " << what << std::endl;
    }

    std::vector<Situation> todo_;
    std::atomic<unsigned> next_{0};
    std::mutex mutex_;
};

} // namespace

int main(int argc, char** argv) {
    CLI::App options{"Ends, stops and confuses the processes of receivers at every step of a request."};
    unsigned rounds = 12, receivers = 24;
    std::size_t warmUp = 10;
    options.add_option("--rounds", rounds, "How often each situation comes")->check(CLI::PositiveNumber);
    options.add_option("--receivers", receivers, "How many at a time")->check(CLI::Range(2, 64));
    options.add_option("--warm-up", warmUp, "Situations before a receiver's processes are measured first");
    CLI11_PARSE(options, argc, argv);

    Campaign services(situationsOfServices(), rounds), host(situationsOfTheHost(), rounds);
    const std::size_t situations = situationsOfServices().size() + situationsOfTheHost().size();
    std::vector<std::thread> threads;
    // The framework process's situations take about a fifth of the time.
    const unsigned forHost = std::max(1U, receivers / 5);
    for (unsigned i = 0; i < receivers; ++i)
        threads.emplace_back([&, i] {
            if (i < forHost)
                host.work({Part::tvService}, warmUp);
            else
                services.work({Part::frameHost}, warmUp);
        });
    std::atomic<bool> ended{false};
    std::thread progress([&] {
        for (unsigned tick = 1; !ended; ++tick) {
            std::this_thread::sleep_for(std::chrono::milliseconds(500));
            if (tick % 20 == 0)
                std::cout << services.done() + host.done() << " of " << services.total() + host.total() << " runs begun"
                          << std::endl;
        }
    });
    for (std::thread& thread : threads) thread.join();
    ended = true;
    progress.join();

    const long total = static_cast<long>(services.total() + host.total());
    const auto both = [&](auto of) { return static_cast<long>(of(services)) + static_cast<long>(of(host)); };
    checks::Report report;
    const auto line = [&](const std::string& what, long value, const std::string& unit, long low, long high,
                          const std::string& bound) {
        report.line(what, value, unit, value >= low && value <= high, bound);
    };
    constexpr long most = 1L << 40;
    line("runs", both([](auto& c) { return c.runs; }), "runs", total, total, "all that were begun");
    line("situations reached", both([](auto& c) { return c.reached.size(); }), "situations",
         static_cast<long>(situations), static_cast<long>(situations), "all that there are");
    line("failed runs", both([](auto& c) { return c.failures; }), "runs", 0, 0, "none");
    line("requests dropped in time", both([](auto& c) { return c.dropped; }), "requests", 0, most,
         "after 5 s, within 7.5 s");
    line("slowest next play", std::max(services.slowest, host.slowest).count(), "ms", 0, 1000, "at most 1000 ms");
    line("receivers compared at rest", both([](auto& c) { return c.compared; }), "receivers", 1, most, "");
    for (const auto& [name, growth] : {std::pair{"framework process", services.growth}, {"TV service", host.growth}}) {
        const std::string of = std::string(" growth, ") + name;
        line("descriptors'" + of, growth.descriptors, "descriptors", 0, 0, "none");
        line("threads'" + of, growth.threads, "threads", 0, 0, "none");
        line("memory's" + of, growth.kibibytes, "KiB", 0, memoryBound, "at most 1024 KiB");
    }
    return report.exitCode();
}
