// Compares the flat heap with libraries that could replace it: time, memory, exhaustion and misuse.
#include "codec/cases.h"
#include "codec/heaps.h"

#include <chrono>
#include <condition_variable>
#include <exception>
#include <iostream>
#include <thread-safety/mutex.h>
#include <thread>
#include <utility>

namespace bench {
namespace {

constexpr std::size_t mebibyte = std::size_t{1} << 20;

// Allocates blocks of these sizes and writes to each.
template <class Consume> void allocateBlocks(const Heap& heap, const std::vector<std::size_t>& sizes, Consume consume) {
    for (const std::size_t size : sizes) {
        auto* const block = static_cast<char*>(heap.allocate(size));
        *block = 1;
        consume(block);
    }
}

Side inOneThread(const Heap& heap, const std::vector<std::size_t>& sizes) {
    std::vector<void*> blocks;
    blocks.reserve(sizes.size());
    return timedSide<ThreadClock>(heap.name, sizes.size(), std::chrono::milliseconds(1),
                                  [heap, sizes, blocks = std::move(blocks)]() mutable {
                                      allocateBlocks(heap, sizes, [&](void* block) { blocks.push_back(block); });
                                      for (void* block : blocks) heap.free(block);
                                      blocks.clear();
                                  });
}

// A buffer that doubles from 1 to 16 MiB, as that of a peer that sends a large message. Writes to every page.
Side growing(const Heap& heap) {
    return timedSide<ThreadClock>(heap.name, 31, std::chrono::milliseconds(1), [heap] {
        void* last = nullptr;
        for (std::size_t size = mebibyte; size <= 16 * mebibyte; size *= 2) {
            auto* const block = static_cast<char*>(heap.allocate(size));
            for (std::size_t i = 0; i < size; i += 4096) block[i] = 1;
            if (last) heap.free(last);
            last = block;
        }
        heap.free(last);
    });
}

// Frees the blocks that another thread hands over.
class FreeingThread {
public:
    ~FreeingThread() {
        handOver(nullptr, {});
        thread_.join();
    }
    // First waits until the previous blocks are freed.
    void handOver(void (*free)(void*) noexcept, std::vector<void*> blocks) {
        thread_safety::UniqueLock lock(mutex_);
        changed_.wait(lock, [this]() TVSA_REQUIRES(mutex_) { return !busy_; });
        blocks_ = std::move(blocks);
        free_ = free;
        busy_ = true;
        changed_.notify_all();
    }
    // The time for freeing the blocks that were handed over since the last call.
    ThreadClock::duration time() {
        thread_safety::UniqueLock lock(mutex_);
        changed_.wait(lock, [this]() TVSA_REQUIRES(mutex_) { return !busy_; });
        return std::exchange(duration_, {});
    }

private:
    void run() {
        thread_safety::UniqueLock lock(mutex_);
        for (;;) {
            changed_.wait(lock, [this]() TVSA_REQUIRES(mutex_) { return busy_; });
            if (!free_) return;
            lock.unlock();
            const auto start = ThreadClock::now();
            for (void* block : blocks_) free_(block);
            const auto duration = ThreadClock::now() - start;
            lock.lock();
            duration_ += duration;
            busy_ = false;
            changed_.notify_all();
        }
    }

    thread_safety::Mutex mutex_;
    std::condition_variable changed_;
    bool busy_ TVSA_GUARDED_BY(mutex_) = false;
    std::vector<void*> blocks_; // only the thread uses it and free_ while busy_
    void (*free_)(void*) noexcept = nullptr;
    ThreadClock::duration duration_ TVSA_GUARDED_BY(mutex_){};
    std::thread thread_{[this] { run(); }};
};

// The CPU time of both threads, without waits for each other. One frees blocks while the other allocates.
Side inTwoThreads(const Heap& heap, const std::vector<std::size_t>& sizes, FreeingThread& other) {
    constexpr std::size_t blocksAtOnce = 1000, turns = 50;
    return {heap.name, [heap, sizes, &other] {
                const std::size_t messages = (blocksAtOnce + sizes.size() - 1) / sizes.size();
                auto duration = other.time();
                for (std::size_t turn = 0; turn < turns; ++turn) {
                    std::vector<void*> blocks;
                    blocks.reserve(messages * sizes.size());
                    const auto start = ThreadClock::now();
                    for (std::size_t i = 0; i < messages; ++i)
                        allocateBlocks(heap, sizes, [&](void* block) { blocks.push_back(block); });
                    duration += ThreadClock::now() - start;
                    other.handOver(heap.free, std::move(blocks));
                }
                duration += other.time();
                return nanoseconds(duration) / static_cast<double>(turns * messages * sizes.size());
            }};
}

template <class MakeSide>
void compare(const Options& options, const Report& report, const std::string& label, Unit unit, Rounds rounds,
             MakeSide makeSide) {
    if (!options.wants(label)) return;
    std::vector<Side> sides;
    for (const Heap& heap : heaps()) sides.push_back(makeSide(heap));
    const auto all = interleaved(sides, options.rounds(rounds));
    for (const Figures& side : all) report.figures(label, side, unit);
    for (std::size_t i = 1; i < all.size(); ++i) report.ratio(label, all[0], all[i]);
}

void run(const Options& options) {
    const Report report("heaps");
    for (const std::string& missing : std::vector<std::string>{BENCH_MISSING_HEAPS})
        report.note(missing + " is not installed: omitted");
    reportHeapsIsolated(options, report);

    const std::vector<std::pair<std::string, std::vector<std::size_t>>> loads{
        {"message", {messageBytes}}, {"request/1", blockSizes(1)}, {"request/100", blockSizes(100)}};
    FreeingThread other; // for the one-thread cases, too: in a process with one thread, locks cost nothing
    for (const auto& [name, sizes] : loads) {
        // The cost of the measurement itself.
        static char anyBlock;
        const Heap none{"none", [](std::size_t) -> void* { return &anyBlock; }, [](void*) noexcept {}};
        const std::string label = "two threads/" + name;
        if (options.wants(label))
            report.figures(label, interleaved({inTwoThreads(none, sizes, other)}, options.rounds({3, 31}))[0],
                           {"ns", "block"});
        compare(options, report, label, {"ns", "block"}, {3, 31},
                [&, &sizes = sizes](const Heap& heap) { return inTwoThreads(heap, sizes, other); });
    }
    pinToOneCpu();
    for (const auto& [name, sizes] : loads)
        compare(options, report, "one thread/" + name, {"ns", "block"}, {3, 61},
                [&sizes = sizes](const Heap& heap) { return inOneThread(heap, sizes); });
    compare(options, report, "large/1-16 MiB", {"ns", "MiB"}, {2, 31}, growing);
}

} // namespace
} // namespace bench

int main(int argc, char** argv) {
    try {
        bench::run(bench::Options::of(argc, argv));
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "heaps_bench: " << error.what() << '\n';
        return 1;
    }
}
