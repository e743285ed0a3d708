#include "codec/heaps.h"

#include <host/marshaller.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <functional>
#include <stdexcept>
#include <sys/resource.h>
#include <sys/wait.h>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace bench {
namespace {

constexpr std::size_t mebibyte = std::size_t{1} << 20;
constexpr Unit perRun{"MiB", "run"};

double inMebibytes(std::size_t bytes) { return static_cast<double>(bytes) / static_cast<double>(mebibyte); }
std::size_t limit() { return static_cast<std::size_t>(host::flatHeapUsage().limit); }

// The result of a child process: values, or a text.
struct Outcome {
    std::array<double, 3> values{};
    std::array<char, 80> text{};

    static Outcome withText(const std::string& text) {
        Outcome outcome;
        text.copy(outcome.text.data(), outcome.text.size() - 1);
        return outcome;
    }
};

// Runs work in a child process, which may crash or hang.
Outcome inChildProcess(const std::function<Outcome()>& work) {
    int ends[2];
    if (pipe(ends) != 0) throw std::system_error(errno, std::generic_category(), "pipe");
    const pid_t child = fork();
    if (child < 0) throw std::system_error(errno, std::generic_category(), "fork");
    if (child == 0) {
        constexpr rlimit noCore{0, 0};
        setrlimit(RLIMIT_CORE, &noCore);
        dup2(open("/dev/null", O_WRONLY | O_CLOEXEC), STDERR_FILENO);
        alarm(10);
        Outcome outcome;
        try {
            outcome = work();
        } catch (const std::exception& error) {
            outcome = Outcome::withText(error.what());
        }
        _exit(write(ends[1], &outcome, sizeof outcome) == sizeof outcome ? 0 : 1);
    }
    close(ends[1]);
    Outcome outcome;
    const bool whole = read(ends[0], &outcome, sizeof outcome) == sizeof outcome;
    close(ends[0]);
    int status = 0;
    waitpid(child, &status, 0);
    if (whole) return outcome;
    if (!WIFSIGNALED(status)) return Outcome::withText("ends without a result");
    if (WTERMSIG(status) == SIGALRM) return Outcome::withText("hangs");
    return Outcome::withText(std::string("ends with SIG") + sigabbrev_np(WTERMSIG(status)));
}

void note(const Report& report, const std::string& label, const Heap& heap, const Outcome& outcome) {
    report.note(label + ", " + heap.name + ": " + outcome.text.data());
}

// Reports the median over several processes for each value that has a name.
void reportIsolated(const Options& options, const Report& report, const std::string& label, const Heap& heap,
                    const std::array<const char*, 3>& names, Unit unit, const std::function<Outcome()>& work) {
    std::array<Figures, 3> figures;
    for (std::size_t round = 0; round < (options.quick ? 1U : 5U); ++round) {
        const Outcome outcome = inChildProcess(work);
        if (outcome.text[0] != 0) return note(report, label, heap, outcome);
        for (std::size_t i = 0; i < names.size(); ++i) figures[i].rounds.push_back(outcome.values[i]);
    }
    for (std::size_t i = 0; i < names.size(); ++i) {
        figures[i].side = heap.name;
        if (names[i]) report.figures(label + "/" + names[i], figures[i], unit);
    }
}

// ---- memory after a burst ----

std::size_t residentBytes() {
    std::size_t all = 0, resident = 0;
    std::ifstream("/proc/self/statm") >> all >> resident;
    return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

// Allocates 64 MiB in blocks of these sizes in turn, writes and then frees them. The values are the growth of the
// process with all blocks, after freeing them, and after a second of small messages.
Outcome burst(const Heap& heap, const std::vector<std::size_t>& sizes) {
    std::size_t bytesPerTurn = 0;
    for (const std::size_t size : sizes) bytesPerTurn += size;
    std::vector<void*> blocks(64 * mebibyte / bytesPerTurn * sizes.size(),
                              &bytesPerTurn); // initialized, so that its own pages are part of `before`
    heap.free(heap.allocate(100));
    const std::size_t before = residentBytes();
    const auto growth = [before] { return inMebibytes(residentBytes()) - inMebibytes(before); };
    Outcome outcome;
    for (std::size_t i = 0; i < blocks.size(); ++i) {
        const std::size_t size = sizes[i % sizes.size()];
        blocks[i] = std::memset(heap.allocate(size), 1, size);
    }
    outcome.values[0] = growth();
    for (void* block : blocks) heap.free(block);
    outcome.values[1] = growth();
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(1);
    while (std::chrono::steady_clock::now() < end)
        for (const std::size_t size : {std::size_t{100}, messageBytes}) heap.free(heap.allocate(size));
    outcome.values[2] = growth();
    return outcome;
}

// ---- exhaustion ----

// Allocates blocks of a size until the heap is exhausted. The memory for the list is reserved first.
std::vector<void*> exhaust(const Heap& heap, std::size_t size) {
    std::vector<void*> blocks;
    blocks.reserve(limit() / size + 1);
    try {
        for (;;) {
            blocks.push_back(heap.allocate(size));
            if (reinterpret_cast<std::uintptr_t>(blocks.back()) + size > UINT32_MAX)
                throw std::logic_error("a block above 4 GiB");
        }
    } catch (const std::bad_alloc&) {
    }
    return blocks;
}

double largestBlock(const Heap& heap) {
    for (std::size_t size = limit(); size > 0; size -= mebibyte) {
        try {
            heap.free(heap.allocate(size));
            return inMebibytes(size);
        } catch (const std::bad_alloc&) {
        }
    }
    return 0;
}

// The values are the memory available in blocks of a size, and the largest block after they are freed.
Outcome exhausted(const Heap& heap, std::size_t size) {
    auto blocks = exhaust(heap, size);
    if (blocks.empty()) return Outcome::withText("returns no block");
    const double available = inMebibytes(blocks.size() * size);
    heap.free(blocks.back());
    try {
        blocks.back() = heap.allocate(size);
    } catch (const std::bad_alloc&) {
        return Outcome::withText("does not reuse a freed block");
    }
    for (void* block : blocks) heap.free(block);
    return {{available, largestBlock(heap)}, {}};
}

Outcome tooLarge(const Heap& heap) {
    for (const std::size_t size : {limit(), limit() + 1, SIZE_MAX / 2, SIZE_MAX - 7, SIZE_MAX - 3, SIZE_MAX}) {
        try {
            if (heap.allocate(size)) return Outcome::withText("returns a block for " + std::to_string(size) + " bytes");
        } catch (const std::bad_alloc&) {
        }
    }
    return Outcome::withText("throws std::bad_alloc");
}

// The value is how many threads can have a small block each.
Outcome threadsServed(const Heap& heap) {
    std::atomic<int> served = 0;
    std::atomic<bool> over = false;
    std::vector<std::thread> threads;
    for (std::atomic<int> tried = 0; tried < 100;) {
        const int before = tried;
        threads.emplace_back([&] {
            void* block = nullptr;
            try {
                block = heap.allocate(100);
                ++served;
            } catch (const std::bad_alloc&) {
            }
            ++tried;
            tried.notify_one();
            over.wait(false);
            if (block) heap.free(block);
        });
        tried.wait(before);
    }
    over = true;
    over.notify_all();
    for (auto& thread : threads) thread.join();
    return {{static_cast<double>(served)}, {}};
}

// The value is the largest block after a thread that allocated all memory for messages has ended.
Outcome afterThread(const Heap& heap) {
    std::thread([&heap] {
        for (void* block : exhaust(heap, messageBytes)) heap.free(block);
    }).join();
    return {{largestBlock(heap)}, {}};
}

// ---- misuse ----

// Allocates many blocks, which must not overlap each other or the live bytes, which all equal `content`.
Outcome stateAfterwards(const Heap& heap, std::size_t size, const char* live, std::size_t liveBytes, char content) {
    std::vector<std::size_t*> blocks;
    for (std::size_t i = 0; i < 2000; ++i) {
        auto* const block = static_cast<std::size_t*>(heap.allocate(i % 2 ? size : 24));
        *block = ~i;
        blocks.push_back(block);
    }
    for (std::size_t i = 0; i < blocks.size(); ++i)
        if (*blocks[i] != ~i) return Outcome::withText("returns a block twice");
    if (!std::all_of(live, live + liveBytes, [content](char byte) { return byte == content; }))
        return Outcome::withText("returns memory in use");
    for (std::size_t* block : blocks) heap.free(block);
    return Outcome::withText("continues, no damage detected");
}

Outcome freedTwice(const Heap& heap, std::size_t size, bool atOnce) {
    void* const block = heap.allocate(size);
    auto* const other = static_cast<char*>(heap.allocate(size));
    std::memset(other, 1, size);
    heap.free(block);
    if (!atOnce) heap.free(other);
    heap.free(block);
    return stateAfterwards(heap, std::min<std::size_t>(size, 60000), other, atOnce ? size : 0, 1);
}

Outcome freedInside(const Heap& heap, std::size_t offset, char content) {
    constexpr std::size_t size = 1000;
    auto* const block = static_cast<char*>(heap.allocate(size));
    std::memset(block, content, size);
    heap.free(block + offset);
    return stateAfterwards(heap, size, block, size, content);
}

} // namespace

void reportHeapsIsolated(const Options& options, const Report& report) {
    struct Case {
        std::string label;
        std::array<const char*, 3> values; // names; none: the outcome is a text
        Unit unit;
        std::function<Outcome(const Heap&)> work;
    };
    std::vector<Case> cases;
    const auto addBurst = [&](const char* name, const std::vector<std::size_t>& sizes) {
        cases.push_back({std::string("burst/") + name,
                         {"allocated", "retained", "retained after a second"},
                         perRun,
                         [sizes](const Heap& heap) { return burst(heap, sizes); }});
    };
    addBurst("request/100", blockSizes(100));
    addBurst("message", {messageBytes});
    addBurst("1 MiB", {mebibyte});
    for (const std::size_t size : {std::size_t{64}, messageBytes, mebibyte})
        cases.push_back({"exhaustion/" + std::to_string(size),
                         {"available", "largest block afterwards", nullptr},
                         perRun,
                         [size](const Heap& heap) { return exhausted(heap, size); }});
    cases.push_back({"exhaustion/ended thread", {"largest block afterwards", nullptr, nullptr}, perRun, afterThread});
    cases.push_back({"exhaustion/threads", {"served of 100", nullptr, nullptr}, {"thread", "run"}, threadsServed});
    cases.push_back({"exhaustion/too large", {}, perRun, tooLarge});
    for (const std::size_t size : {std::size_t{100}, mebibyte})
        for (const bool atOnce : {true, false})
            cases.push_back({"misuse/double free of " + std::to_string(size) + (atOnce ? ", at once" : ", later"),
                             {},
                             perRun,
                             [=](const Heap& heap) { return freedTwice(heap, size, atOnce); }});
    for (const std::size_t offset : {std::size_t{8}, std::size_t{64}})
        for (const char content : {'\0', 'x'})
            cases.push_back(
                {"misuse/free inside a block at " + std::to_string(offset) + (content ? ", text" : ", zeros"),
                 {},
                 perRun,
                 [=](const Heap& heap) { return freedInside(heap, offset, content); }});
    for (const Case& each : cases) {
        if (!options.wants(each.label)) continue;
        for (const Heap& heap : heaps()) {
            const auto work = [&] { return each.work(heap); };
            if (each.values[0])
                reportIsolated(options, report, each.label, heap, each.values, each.unit, work);
            else
                note(report, each.label, heap, inChildProcess(work));
        }
    }
}

} // namespace bench
