// What a process records: the ring that it writes, and what readers make of it.
#include "recorder/recorder.h"

#include "recorder/ring-layout.h"

#include <host/folders.h>
#include <host/process-name.h>
#include <host/ring-reader.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

using host::EventKind;
using host::RecordedEvent;
using host::RingReader;
using host::recorder::Ring;
using testing::ElementsAre;
using testing::HasSubstr;

class ARing : public testing::Test {
protected:
    ARing() {
        char pattern[] = "/tmp/ring-XXXXXX";
        folder = mkdtemp(pattern);
        file = folder / "process.ring";
    }
    ~ARing() override { std::filesystem::remove_all(folder); }

    std::filesystem::path folder;
    std::string file;

    static std::string contentOf(const std::filesystem::path& path) {
        std::ifstream stream(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }

    void add(Ring& ring, std::uint64_t number, std::string_view text = "text") const {
        ring.add(EventKind::line, 0, number, "name", text);
    }
    static std::vector<RecordedEvent> all(RingReader& reader) {
        std::vector<RecordedEvent> events;
        for (RecordedEvent event; reader.next(event);) events.push_back(event);
        return events;
    }
    std::vector<RecordedEvent> all() const {
        RingReader reader(file);
        return all(reader);
    }
    static std::vector<std::uint64_t> numbersOf(const std::vector<RecordedEvent>& events) {
        std::vector<std::uint64_t> numbers;
        for (const auto& event : events) numbers.push_back(event.number);
        return numbers;
    }
    std::string errorOf(const std::string& name) const {
        try {
            const RingReader reader(name);
        } catch (const host::RingError& error) {
            return error.what();
        }
        return "none";
    }
};

TEST_F(ARing, ReturnsEventsAsTheyWereAdded) {
    Ring ring(file, Ring::leastBytes, "1.2");
    ring.add(EventKind::message, host::EventFlags::sent, 7, "tvservice", "header", "body");
    ring.add(EventKind::line, 0, 4000, "adapter", "");
    const auto events = all();
    ASSERT_EQ(events.size(), 2U);
    EXPECT_EQ(events[0].kind, EventKind::message);
    EXPECT_EQ(events[0].flags, host::EventFlags::sent);
    EXPECT_EQ(events[0].number, 7U);
    EXPECT_EQ(events[0].name, "tvservice");
    EXPECT_EQ(events[0].data, "headerbody");
    EXPECT_EQ(events[0].size, 10U);
    EXPECT_EQ(events[0].thread, static_cast<std::uint32_t>(gettid()));
    EXPECT_EQ(events[1].data, "");
    EXPECT_LE(events[0].time, events[1].time);
    const std::chrono::nanoseconds now = std::chrono::system_clock::now().time_since_epoch();
    EXPECT_LE(events[1].date, now.count());
    EXPECT_GT(events[0].date, (now - std::chrono::minutes(5)).count());
}

TEST_F(ARing, KeepsItsNewestEvents) {
    Ring ring(file, Ring::leastBytes, "1.2");
    constexpr std::uint64_t count = 20'000;
    for (std::uint64_t i = 0; i < count; ++i) add(ring, i, std::string(i % 300, 'x'));
    const auto events = all();
    ASSERT_FALSE(events.empty());
    std::size_t bytes = 0;
    for (std::size_t i = 0; i < events.size(); ++i) {
        ASSERT_EQ(events[i].number, count - events.size() + i);
        ASSERT_EQ(events[i].data, std::string(events[i].number % 300, 'x'));
        bytes += events[i].data.size();
    }
    EXPECT_GT(bytes, Ring::leastBytes / 2);
}

TEST_F(ARing, TellsAReaderHowMuchItHasMissed) {
    Ring ring(file, Ring::leastBytes, "1.2");
    RingReader reader(file);
    add(ring, 1);
    EXPECT_THAT(numbersOf(all(reader)), ElementsAre(1));
    EXPECT_EQ(reader.lostBytes(), 0U);
    for (std::uint64_t i = 0; i < 20'000; ++i) add(ring, 2);
    EXPECT_LT(all(reader).size(), 20'000U);
    EXPECT_GT(reader.lostBytes(), Ring::leastBytes);
    add(ring, 3);
    EXPECT_THAT(numbersOf(all(reader)), ElementsAre(3));
}

TEST_F(ARing, ReturnsOnlyWhatFollowsAfterAllWasSkipped) {
    Ring ring(file, Ring::leastBytes, "1.2");
    add(ring, 1);
    RingReader reader(file);
    reader.skipAll();
    add(ring, 2);
    EXPECT_THAT(numbersOf(all(reader)), ElementsAre(2));
}

TEST_F(ARing, CutsOffLongDataAndSaysHowLongItWas) {
    Ring ring(file, Ring::leastBytes, "1.2");
    ring.add(EventKind::message, 0, 1, "tvservice", std::string(40'000, 'a'), std::string(40'000, 'b'));
    ring.add(EventKind::message, 0, 2, "tvservice", std::string(90'000, 'a'), "b");
    add(ring, 3);
    const auto events = all();
    ASSERT_EQ(events.size(), 3U);
    EXPECT_EQ(events[0].data, std::string(40'000, 'a') + std::string(host::mostRecordedBytes - 40'000, 'b'));
    EXPECT_EQ(events[0].size, 80'000U);
    EXPECT_EQ(events[1].data, std::string(host::mostRecordedBytes, 'a'));
    EXPECT_EQ(events[1].size, 90'001U);
}

TEST_F(ARing, CutsOffLongNames) {
    Ring ring(file, Ring::leastBytes, "1.2");
    ring.add(EventKind::line, 0, 1, std::string(70'000, 'n'), "text");
    const auto events = all();
    ASSERT_EQ(events.size(), 1U);
    EXPECT_EQ(events[0].name, std::string(255, 'n'));
    EXPECT_EQ(events[0].data, "text");
}

TEST_F(ARing, DescribesTheProcess) {
    host::setProcessName("frame-host");
    Ring ring(file, Ring::leastBytes, "1.2");
    const RingReader reader(file);
    EXPECT_EQ(reader.info().process, "frame-host");
    EXPECT_EQ(reader.info().version, "1.2");
    EXPECT_EQ(reader.info().pid, static_cast<std::uint32_t>(getpid()));
    EXPECT_THAT(reader.info().boot, testing::SizeIs(36));
    EXPECT_FALSE(reader.info().hasEnded);
    ring.markEnded();
    EXPECT_TRUE(reader.info().hasEnded);
}

TEST_F(ARing, IsReadableByItsUserOnly) {
    const Ring ring(file, Ring::leastBytes, "1.2");
    struct stat status {};
    ASSERT_EQ(stat(file.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600U);
}

TEST_F(ARing, IsNeverReadWronglyWhileThreadsWrite) {
    Ring ring(file, Ring::leastBytes, "1.2");
    RingReader reader(file);
    std::atomic<bool> ended{false};
    std::vector<std::thread> threads;
    for (std::uint64_t t = 0; t < 3; ++t)
        threads.emplace_back([&, t] {
            for (std::uint64_t i = 0; !ended; ++i)
                add(ring, i << 2 | t, std::string((i * 7 + t) % 5000, static_cast<char>('a' + t)));
        });
    std::array<std::uint64_t, 3> next{};
    std::int64_t time = 0;
    for (int read = 0; read < 20'000;) {
        RecordedEvent event;
        if (!reader.next(event)) continue;
        ++read;
        const std::uint64_t thread = event.number & 3, number = event.number >> 2;
        EXPECT_GE(number, next.at(thread));
        EXPECT_EQ(event.data, std::string((number * 7 + thread) % 5000, static_cast<char>('a' + thread)));
        EXPECT_GE(event.time, time);
        next.at(thread) = number + 1;
        time = event.time;
        if (HasFailure()) break;
    }
    ended = true;
    for (auto& thread : threads) thread.join();
}

TEST_F(ARing, HasAllEventsOfAKilledProcess) {
    auto* const added = static_cast<std::atomic<std::uint64_t>*>(
        mmap(nullptr, sizeof(std::atomic<std::uint64_t>), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    for (unsigned round = 1; round <= 20; ++round) {
        *added = 0;
        std::filesystem::remove(file);
        const pid_t child = fork();
        if (child == 0) {
            Ring ring(file, Ring::leastBytes, "1.2");
            for (std::uint64_t i = 1;; ++i) {
                add(ring, i, std::string(i % 100, 'x'));
                *added = i;
            }
        }
        while (*added < 1000U * round) std::this_thread::yield();
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        const auto numbers = numbersOf(all());
        ASSERT_FALSE(numbers.empty());
        EXPECT_GE(numbers.back(), *added);
        EXPECT_LE(numbers.back(), *added + 1);
        EXPECT_EQ(numbers.back() - numbers.front() + 1, numbers.size());
    }
    munmap(added, sizeof *added);
}

TEST_F(ARing, IsReadBeyondDamagedPages) {
    {
        Ring ring(file, Ring::leastBytes, "1.2");
        for (std::uint64_t i = 0; i < 1000; ++i) add(ring, i);
    }
    std::fstream(file).seekp(3 * host::recorder::pageBytes).write(std::string(100, '\xFF').data(), 100);
    const auto numbers = numbersOf(all());
    EXPECT_EQ(numbers.front(), 0U);
    EXPECT_EQ(numbers.back(), 999U);
    EXPECT_LT(numbers.size(), 1000U);
    EXPECT_GT(numbers.size(), 800U);
}

TEST_F(ARing, IsReadWhateverIsInIt) {
    {
        Ring ring(file, Ring::leastBytes, "1.2");
        for (std::uint64_t i = 0; i < 8000; ++i) add(ring, i, std::string(i % 200, 'x'));
    }
    const std::string whole = contentOf(file);
    std::mt19937 random(1);
    for (int round = 0; round < 300; ++round) {
        std::string damaged = whole;
        // Half of them in the header, whose addresses and sizes lead to all else.
        for (int i = 0; i < 20; ++i) damaged[random() % (i % 2 ? damaged.size() : 232)] = static_cast<char>(random());
        if (round % 2) damaged.replace(0, 40, whole, 0, 40);
        std::ofstream(file, std::ios::binary) << damaged;
        try {
            for (const auto& event : all()) EXPECT_LE(event.data.size(), host::mostRecordedBytes);
        } catch (const host::RingError&) {
        }
    }
}

TEST_F(ARing, RefusesFilesThatAreNone) {
    const auto made = [&](const std::string& content) {
        std::ofstream(file, std::ios::binary) << content;
        return errorOf(file);
    };
    EXPECT_THAT(errorOf(folder / "none"), HasSubstr("none: No such file or directory"));
    EXPECT_THAT(errorOf(folder), HasSubstr("not a regular file"));
    EXPECT_THAT(made(""), HasSubstr("process.ring: not a ring: it has no header"));
    EXPECT_THAT(made(std::string(8192, 'x')), HasSubstr("not a ring"));
    std::filesystem::remove(file);
    { const Ring ring(file, Ring::leastBytes, "1.2"); }
    const std::string whole = contentOf(file);
    EXPECT_THAT(made(whole.substr(0, whole.size() - 1)), HasSubstr("a ring that is cut off"));
    std::string other = whole;
    std::swap(other[12], other[15]);
    std::swap(other[13], other[14]);
    EXPECT_THAT(made(other), HasSubstr("a ring of a machine with another byte order"));
    other = whole;
    other[8] = 9;
    EXPECT_THAT(made(other), HasSubstr("a ring of version 9; this program reads version 1"));
}

TEST_F(ARing, TakesItsWholeMemoryAtOnceOrIsNotMade) {
    const pid_t child = fork();
    if (child == 0) {
        const rlimit limit{1 << 20, 1 << 20};
        setrlimit(RLIMIT_FSIZE, &limit);
        std::signal(SIGXFSZ, SIG_IGN);
        try {
            const Ring ring(file, 2 << 20, "1.2");
            _exit(1);
        } catch (const std::system_error& error) {
            _exit(std::string(error.what()).find("File too large") != std::string::npos ? 0 : 2);
        }
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_FALSE(std::filesystem::exists(file));
}

// A process records for its whole life, so each of these runs in one of its own.
class ARecorder : public ARing {
protected:
    ARecorder() { setenv("RUNTIME_DIRECTORY", folder.c_str(), 1); }
    ~ARecorder() override { unsetenv("RUNTIME_DIRECTORY"); }

    // Starts recording in a child process, calls what, and kills the process. Returns what start told.
    std::string inAProcess(const std::function<void()>& what) const {
        int ends[2];
        if (pipe(ends) != 0) return "no pipe";
        const pid_t child = fork();
        if (child == 0) {
            host::setProcessName("service");
            std::string news;
            try {
                news = host::recorder::start(Ring::leastBytes, "1.2");
                what();
            } catch (const std::exception& error) {
                news = error.what();
            }
            [[maybe_unused]] const auto written = write(ends[1], news.data(), news.size());
            kill(getpid(), SIGKILL);
        }
        close(ends[1]);
        std::string news(1000, '\0');
        const auto got = read(ends[0], news.data(), news.size());
        close(ends[0]);
        waitpid(child, nullptr, 0);
        return news.substr(0, got > 0 ? static_cast<std::size_t>(got) : 0);
    }
    const std::string ring = folder / "recordings/service.ring";
};

TEST_F(ARecorder, SaysThatTheProcessBeforeDidNotEndAndKeepsItsRing) {
    EXPECT_EQ(inAProcess([] { host::recorder::record(EventKind::line, 1, "module", "the last line"); }), "");
    EXPECT_THAT(inAProcess([] { host::recorder::end(); }),
                testing::ContainsRegex("process [0-9]+ did not end in an orderly way; it recorded its last event at "
                                       "20[-0-9T:]+Z; .*/recordings/service.ring.killed has what it did last"));
    inAProcess([] { host::recorder::end(); });
    RingReader before(ring + ".killed");
    const auto events = all(before);
    EXPECT_EQ(events.front().data, "service 1.2 began");
    EXPECT_EQ(events.back().data, "the last line");
    EXPECT_THAT(host::ringsIn(host::ringFolder()), ElementsAre(ring, ring + ".1", ring + ".killed"));
}

TEST_F(ARecorder, SaysNothingOfAProcessThatEnded) {
    EXPECT_EQ(inAProcess([] { host::recorder::end(); }), "");
    EXPECT_EQ(inAProcess([] {}), "");
}

TEST_F(ARecorder, LeavesTheRingOfAProcessOfTheSameNameThatRuns) {
    std::filesystem::create_directory(folder / "recordings");
    const Ring running(ring, Ring::leastBytes, "1.2");
    EXPECT_THAT(inAProcess([] {}), HasSubstr("service.ring: another process of this name records there"));
    EXPECT_THAT(host::ringsIn(host::ringFolder()), ElementsAre(ring));
}

TEST_F(ARecorder, CannotBeSentElsewhereByALink) {
    std::filesystem::create_directory(folder / "recordings");
    std::ofstream(folder / "other") << "untouched";
    std::filesystem::create_symlink(folder / "other", ring);
    EXPECT_THAT(inAProcess([] {}), HasSubstr("service.ring: Too many levels of symbolic links"));
    EXPECT_EQ(contentOf(folder / "other"), "untouched");
}

TEST_F(ARecorder, RecordsNothingBeforeItIsStarted) {
    EXPECT_EQ(host::recorder::ring(), nullptr);
    host::recorder::record(EventKind::line, 1, "module", "text");
    host::recorder::end();
    EXPECT_THAT(host::ringsIn(host::ringFolder()), testing::IsEmpty());
}

} // namespace
