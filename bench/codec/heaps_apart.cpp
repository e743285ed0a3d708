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

// What a process of its own found out: values, or in words what went wrong.
struct Found {
    std::array<double, 3> values{};
    std::array<char, 80> words{};

    static Found saying(const std::string& text) {
        Found found;
        text.copy(found.words.data(), found.words.size() - 1);
        return found;
    }
};

// Runs work in a child process, which may crash or hang.
Found apart(const std::function<Found()>& work) {
    int ends[2];
    if (pipe(ends) != 0) throw std::system_error(errno, std::generic_category(), "pipe");
    const pid_t child = fork();
    if (child < 0) throw std::system_error(errno, std::generic_category(), "fork");
    if (child == 0) {
        constexpr rlimit noCore{0, 0};
        setrlimit(RLIMIT_CORE, &noCore);
        dup2(open("/dev/null", O_WRONLY | O_CLOEXEC), STDERR_FILENO);
        alarm(10);
        Found found;
        try {
            found = work();
        } catch (const std::exception& error) {
            found = Found::saying(error.what());
        }
        _exit(write(ends[1], &found, sizeof found) == sizeof found ? 0 : 1);
    }
    close(ends[1]);
    Found found;
    const bool whole = read(ends[0], &found, sizeof found) == sizeof found;
    close(ends[0]);
    int status = 0;
    waitpid(child, &status, 0);
    if (whole) return found;
    if (!WIFSIGNALED(status)) return Found::saying("ends without a word");
    if (WTERMSIG(status) == SIGALRM) return Found::saying("hangs");
    return Found::saying(std::string("ends with SIG") + sigabbrev_np(WTERMSIG(status)));
}

void say(const Report& report, const std::string& label, const Heap& heap, const Found& found) {
    report.note(label + ", " + heap.name + ": " + found.words.data());
}

// The median of some processes for each value. Without a name a value is not reported.
void reportApart(const Options& options, const Report& report, const std::string& label, const Heap& heap,
                 const std::array<const char*, 3>& names, Unit unit, const std::function<Found()>& work) {
    std::array<Figures, 3> figures;
    for (std::size_t round = 0; round < (options.quick ? 1U : 5U); ++round) {
        const Found found = apart(work);
        if (found.words[0] != 0) return say(report, label, heap, found);
        for (std::size_t i = 0; i < names.size(); ++i) figures[i].rounds.push_back(found.values[i]);
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

// Blocks of the sizes in turn, 64 MiB of them, all written, then freed. What the process has more than before: with all
// blocks, after their release, and after a second of small messages.
Found burst(const Heap& heap, const std::vector<std::size_t>& sizes) {
    std::size_t inTurn = 0;
    for (const std::size_t size : sizes) inTurn += size;
    std::vector<void*> blocks(64 * mebibyte / inTurn * sizes.size(),
                              &inTurn); // written, so that its pages count before
    heap.free(heap.allocate(100));
    const std::size_t before = residentBytes();
    const auto more = [before] { return inMebibytes(residentBytes()) - inMebibytes(before); };
    Found found;
    for (std::size_t i = 0; i < blocks.size(); ++i) {
        const std::size_t size = sizes[i % sizes.size()];
        blocks[i] = std::memset(heap.allocate(size), 1, size);
    }
    found.values[0] = more();
    for (void* block : blocks) heap.free(block);
    found.values[1] = more();
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(1);
    while (std::chrono::steady_clock::now() < end)
        for (const std::size_t size : {std::size_t{100}, messageBytes}) heap.free(heap.allocate(size));
    found.values[2] = more();
    return found;
}

// ---- exhaustion ----

// Blocks of a size until there are no more. Room for the list is taken before.
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

// How much there is in blocks of a size, and the largest block when they are free again.
Found exhausted(const Heap& heap, std::size_t size) {
    auto blocks = exhaust(heap, size);
    if (blocks.empty()) return Found::saying("gives no block");
    const double got = inMebibytes(blocks.size() * size);
    heap.free(blocks.back());
    try {
        blocks.back() = heap.allocate(size);
    } catch (const std::bad_alloc&) {
        return Found::saying("does not give a block again that was freed");
    }
    for (void* block : blocks) heap.free(block);
    return {{got, largestBlock(heap)}, {}};
}

Found tooLarge(const Heap& heap) {
    for (const std::size_t size : {limit(), limit() + 1, SIZE_MAX / 2, SIZE_MAX - 7, SIZE_MAX - 3, SIZE_MAX}) {
        try {
            if (heap.allocate(size)) return Found::saying("gives a block for " + std::to_string(size) + " bytes");
        } catch (const std::bad_alloc&) {
        }
    }
    return Found::saying("throws std::bad_alloc");
}

// How many threads can have a small block each.
Found threadsServed(const Heap& heap) {
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

// The largest block when a thread that had all memory in messages has ended.
Found afterThread(const Heap& heap) {
    std::thread([&heap] {
        for (void* block : exhaust(heap, messageBytes)) heap.free(block);
    }).join();
    return {{largestBlock(heap)}, {}};
}

// ---- misuse ----

// Takes many blocks, which must not lie across each other nor change live bytes that are all `content`.
Found stateAfterwards(const Heap& heap, std::size_t size, const char* live, std::size_t liveBytes, char content) {
    std::vector<std::size_t*> blocks;
    for (std::size_t i = 0; i < 2000; ++i) {
        auto* const block = static_cast<std::size_t*>(heap.allocate(i % 2 ? size : 24));
        *block = ~i;
        blocks.push_back(block);
    }
    for (std::size_t i = 0; i < blocks.size(); ++i)
        if (*blocks[i] != ~i) return Found::saying("gives a block out twice");
    if (!std::all_of(live, live + liveBytes, [content](char byte) { return byte == content; }))
        return Found::saying("gives out memory in use");
    for (std::size_t* block : blocks) heap.free(block);
    return Found::saying("goes on, no harm seen");
}

Found freedTwice(const Heap& heap, std::size_t size, bool atOnce) {
    void* const block = heap.allocate(size);
    auto* const other = static_cast<char*>(heap.allocate(size));
    std::memset(other, 1, size);
    heap.free(block);
    if (!atOnce) heap.free(other);
    heap.free(block);
    return stateAfterwards(heap, std::min<std::size_t>(size, 60000), other, atOnce ? size : 0, 1);
}

Found freedInside(const Heap& heap, std::size_t offset, char content) {
    constexpr std::size_t size = 1000;
    auto* const block = static_cast<char*>(heap.allocate(size));
    std::memset(block, content, size);
    heap.free(block + offset);
    return stateAfterwards(heap, size, block, size, content);
}

} // namespace

void reportHeapsApart(const Options& options, const Report& report) {
    struct Case {
        std::string label;
        std::array<const char*, 3> values; // none: the outcome is words
        Unit unit;
        std::function<Found(const Heap&)> work;
    };
    std::vector<Case> cases;
    const auto addBurst = [&](const char* name, const std::vector<std::size_t>& sizes) {
        cases.push_back(
            {std::string("burst/") + name, {"taken", "kept", "kept after a second"}, perRun, [sizes](const Heap& heap) {
                 return burst(heap, sizes);
             }});
    };
    addBurst("request/100", blockSizes(100));
    addBurst("message", {messageBytes});
    addBurst("1 MiB", {mebibyte});
    for (const std::size_t size : {std::size_t{64}, messageBytes, mebibyte})
        cases.push_back({"exhaustion/" + std::to_string(size),
                         {"got", "largest block after", nullptr},
                         perRun,
                         [size](const Heap& heap) { return exhausted(heap, size); }});
    cases.push_back({"exhaustion/ended thread", {"largest block after", nullptr, nullptr}, perRun, afterThread});
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
                reportApart(options, report, each.label, heap, each.values, each.unit, work);
            else
                say(report, each.label, heap, apart(work));
        }
    }
}

} // namespace bench
