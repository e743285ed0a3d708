#include "runlog/run-log-queue.h"
#include "runlog/run-log-store.h"

#include <host/log-capture.h>
#include <lrt/run-log-agent.h>
#include <vdl/debug.h>

#include <SQLiteCpp/SQLiteCpp.h>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <future>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <optional>
#include <stdexcept>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace lrt {

bool operator==(const RunLogRecord& a, const RunLogRecord& b) {
    return a.logCode == b.logCode && a.logTime == b.logTime && a.errorCode == b.errorCode && a.logKind == b.logKind &&
           a.eventId == b.eventId && a.logText == b.logText;
}

} // namespace lrt

namespace {

using namespace std::chrono_literals;
using lrt::RunLogAgentImpl;
using lrt::RunLogQueue;
using lrt::RunLogRecord;
using lrt::RunLogStore;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr std::uint32_t runLogModule = 0x0204;

struct Folder {
    Folder() {
        char pattern[] = "/tmp/run-log-XXXXXX";
        path = mkdtemp(pattern);
    }
    ~Folder() { std::filesystem::remove_all(path); }
    std::string path;
};

RunLogRecord record(const std::string& text) { return {"code", "2024-05-17T08:30:00.123Z", "error", 1, 2, text}; }

std::vector<std::string> textsOf(const std::vector<RunLogRecord>& records) {
    std::vector<std::string> texts;
    texts.reserve(records.size());
    for (const auto& each : records) texts.push_back(each.logText);
    return texts;
}

struct RunLogFile : testing::Test {
    std::vector<std::string> newest(std::size_t count = 100) { return textsOf(RunLogStore::readNewest(path, count)); }

    Folder folder;
    std::string path = folder.path + "/runlog.sqlite";
    RunLogStore store{path, 5};
    host::LogCapture log{{runLogModule}};
};

// With umask 0, under which files are open to all. The umask is restored afterwards.
struct RunLogFileOfOneUser : RunLogFile {
    RunLogFileOfOneUser() : before(umask(0)) {}
    ~RunLogFileOfOneUser() override { umask(before); }

    mode_t modeOf(const std::string& part) const {
        struct stat status {};
        EXPECT_EQ(stat((path + part).c_str(), &status), 0) << part;
        return status.st_mode & 07777;
    }
    void expectPrivate() const {
        for (const char* part : {"", "-wal", "-shm"}) EXPECT_EQ(modeOf(part), 0600U) << '"' << part << '"';
    }

    const mode_t before;
};

TEST_F(RunLogFileOfOneUser, IsPrivateWhateverTheUmask) {
    for (const mode_t mask : {0000U, 0022U, 0077U, 0777U}) {
        umask(mask);
        RunLogStore(path, 5).write({record("text")});
        {
            RunLogStore open(path, 5);
            open.write({record("text")});
            expectPrivate();
        }
        for (const char* part : {"", "-wal", "-shm"}) std::filesystem::remove(path + part);
    }
}

TEST_F(RunLogFileOfOneUser, BecomesPrivateWhenReopened) {
    store.write({record("earlier")});
    for (const char* part : {"", "-wal", "-shm"}) ASSERT_EQ(chmod((path + part).c_str(), 0644), 0);
    RunLogStore(path, 5).write({record("text")});
    expectPrivate();
    EXPECT_THAT(newest(), ElementsAre("text", "earlier"));
}

TEST_F(RunLogFile, KeepsAllFieldsAsTheyWereGiven) {
    const RunLogRecord odd{"it's \"quoted\"; DROP TABLE run_log; --",
                           "",
                           std::string("a\0b", 3),
                           INT32_MIN,
                           INT32_MAX,
                           "gr\xC3\xBC\xC3\x9F\n\xFF" + std::string(100000, 'x')};
    store.write({odd, {}});
    EXPECT_THAT(RunLogStore::readNewest(path, 2), ElementsAre(RunLogRecord{}, odd));
}

TEST_F(RunLogFile, ReadsTheNewestFirst) {
    store.write({record("1"), record("2")});
    store.write({record("3")});
    EXPECT_THAT(newest(2), ElementsAre("3", "2"));
    EXPECT_THAT(newest(0), IsEmpty());
    EXPECT_THAT(newest(SIZE_MAX), ElementsAre("3", "2", "1"));
}

TEST_F(RunLogFile, StopsReadingAtTheRecordThatReachesTheRequestedBytes) {
    const RunLogRecord small = record("2");
    store.write({record("1"), small, record(std::string(1000, 'x'))});
    const std::size_t bytesOfSmall =
        small.logCode.size() + small.logTime.size() + small.errorCode.size() + small.logText.size();
    const std::size_t bytesOfBoth = bytesOfSmall + bytesOfSmall - 1 + 1000;
    EXPECT_EQ(RunLogStore::readNewest(path, 3, 1).size(), 1U);
    EXPECT_EQ(RunLogStore::readNewest(path, 3, bytesOfBoth).size(), 2U);
    EXPECT_EQ(RunLogStore::readNewest(path, 3, bytesOfBoth + 1).size(), 3U);
}

TEST_F(RunLogFile, ReadsAMebibyteOfLongRecordsByDefault) {
    const std::string text(300 * 1024, 'x');
    for (int i = 0; i < 5; ++i) store.write({record(text)});
    EXPECT_EQ(newest().size(), 4U);
}

TEST_F(RunLogFile, KeepsOnlyTheNewestRecords) {
    for (int i = 0; i < 7; ++i) store.write({record(std::to_string(i))});
    EXPECT_THAT(newest(), ElementsAre("6", "5", "4", "3", "2"));
    std::vector<RunLogRecord> many;
    for (int i = 10; i < 20; ++i) many.push_back(record(std::to_string(i)));
    store.write(many);
    EXPECT_THAT(newest(), ElementsAre("19", "18", "17", "16", "15"));
}

TEST_F(RunLogFile, OutlivesItsStore) {
    { RunLogStore(path).write({record("1")}); }
    { RunLogStore(path).write({record("2")}); }
    EXPECT_THAT(newest(), ElementsAre("2", "1"));
}

TEST_F(RunLogFile, AcceptsRecordsOfSeveralStores) {
    RunLogStore other(path);
    store.write({record("1")});
    other.write({record("2")});
    store.write({record("3")});
    EXPECT_THAT(newest(), ElementsAre("3", "2", "1"));
}

TEST_F(RunLogFile, ReadsNothingWhereThereIsNoFile) {
    EXPECT_THAT(newest(), IsEmpty());
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(RunLogFile, MovesADamagedFileAside) {
    std::ofstream(path) << std::string(5000, '?');
    store.write({record("1")});
    EXPECT_THAT(newest(), ElementsAre("1"));
    EXPECT_EQ(std::filesystem::file_size(path + ".broken"), 5000U);
    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_EQ(log.lines()[0].levelWord, runLogModule << 16 | vdlDebugWarning);
    EXPECT_THAT(log.lines()[0].text, HasSubstr("moved to " + path + ".broken"));
    store.write({record("2")});
    EXPECT_EQ(log.lines().size(), 1U);
}

TEST_F(RunLogFile, MovesAsideAFileThatIsDamagedWhileInUse) {
    store.write({record("1")});
    { SQLite::Database(path, SQLite::OPEN_READWRITE).exec("PRAGMA wal_checkpoint(TRUNCATE)"); }
    {
        std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
        file << std::string(static_cast<std::size_t>(std::filesystem::file_size(path)), '?');
    }
    RunLogStore(path).write({record("2")});
    EXPECT_THAT(newest(), ElementsAre("2"));
    store.write({record("3")});
    EXPECT_THAT(newest(), ElementsAre("3", "2"));
}

TEST_F(RunLogFile, MovesAForeignDatabaseAsideUnchanged) {
    {
        SQLite::Database other(path, SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE);
        other.exec("CREATE TABLE run_log (id INTEGER PRIMARY KEY, other TEXT)");
    }
    std::ifstream file(path, std::ios::binary);
    const std::string before(std::istreambuf_iterator<char>(file), {});
    store.write({record("1")});
    EXPECT_THAT(newest(), ElementsAre("1"));
    std::ifstream aside(path + ".broken", std::ios::binary);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(aside), {}), before);
}

TEST_F(RunLogFile, IsCreatedAgainWhenItsFileWasRemoved) {
    store.write({record("1")});
    for (const char* part : {"", "-wal", "-shm"}) std::filesystem::remove(path + part);
    store.write({record("2")});
    EXPECT_THAT(newest(), ElementsAre("2"));
}

TEST_F(RunLogFile, StoresAllOrNothingOnAFullDiskAndContinuesWhenThereIsRoom) {
    store.write({record("before")});
    rlimit former{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &former), 0);
    const auto formerHandler = std::signal(SIGXFSZ, SIG_IGN);
    rlimit small = former;
    small.rlim_cur = 256 * 1024;
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    EXPECT_THROW(store.write({record("lost"), record(std::string(1 << 20, 'x'))}), std::exception);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &former), 0);
    std::signal(SIGXFSZ, formerHandler);
    EXPECT_THAT(newest(), ElementsAre("before"));
    store.write({record("after")});
    EXPECT_THAT(newest(), ElementsAre("after", "before"));
}

TEST_F(RunLogFile, OmitsOnlyTheRecordThatTheFileRejects) {
    store.write({record("0")});
    SQLite::Database(path, SQLite::OPEN_READWRITE)
        .exec(
            "CREATE TRIGGER picky BEFORE INSERT ON run_log WHEN new.log_text LIKE 'bad%' "
            "BEGIN SELECT RAISE(ABORT, 'not this one'); END");
    EXPECT_EQ(store.write({record("bad 1"), record("1"), record("bad 2"), record("2")}), 2U);
    EXPECT_THAT(newest(), ElementsAre("2", "1", "0"));
    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_EQ(log.lines()[0].text, path + ": left out 2 records: not this one");
    EXPECT_EQ(store.write({record("bad 3")}), 1U);
    EXPECT_EQ(store.write({record("3")}), 0U);
    EXPECT_THAT(newest(1), ElementsAre("3"));
}

TEST_F(RunLogFile, RejectsAPathThatItCannotOpen) {
    std::filesystem::create_directory(path);
    EXPECT_THROW(store.write({record("1")}), std::exception);
    EXPECT_TRUE(std::filesystem::is_directory(path));
}

// A store that blocks until the test opens it, and fails when the test wants.
struct HeldStore {
    std::size_t operator()(const std::vector<RunLogRecord>& records) {
        std::unique_lock lock(mutex);
        entered = true;
        changed.notify_all();
        changed.wait(lock, [&] { return open; });
        if (fails) throw std::runtime_error("no room left");
        const std::size_t before = stored.size();
        for (const auto& each : records)
            if (each.logText != "left out") stored.push_back(each.logText);
        ++batches;
        return before + records.size() - stored.size();
    }
    void set(bool nowOpen, bool nowFails = false) {
        std::lock_guard lock(mutex);
        open = nowOpen;
        fails = nowFails;
        entered = false;
        changed.notify_all();
    }
    void waitUntilEntered() {
        std::unique_lock lock(mutex);
        ASSERT_TRUE(changed.wait_for(lock, 10s, [&] { return entered; }));
    }
    std::mutex mutex;
    std::condition_variable changed;
    bool entered = false, open = false, fails = false;
    std::vector<std::string> stored;
    int batches = 0;
};

struct RunLogQueueTest : testing::Test {
    HeldStore store;
    host::LogCapture log{{runLogModule}};
};

TEST_F(RunLogQueueTest, DropsAndCountsRecordsWhileItIsFull) {
    RunLogQueue queue(4, std::ref(store));
    queue.write(record("0"));
    store.waitUntilEntered();
    for (int i = 1; i < 10; ++i) queue.write(record(std::to_string(i)));
    EXPECT_EQ(queue.dropped(), 6U);
    store.set(true);
    queue.flush(10s);
    EXPECT_THAT(store.stored, ElementsAre("0", "1", "2", "3"));
    EXPECT_EQ(store.batches, 2);
    EXPECT_TRUE(log.waitFor("storing works again; 6 records were lost", 10s));
}

TEST_F(RunLogQueueTest, ReportsOnceThatStoringFailsAndHowManyWereLostWhenItWorksAgain) {
    RunLogQueue queue(4, std::ref(store));
    store.set(true, true);
    for (int i = 0; i < 3; ++i) {
        queue.write(record("lost"));
        queue.flush(10s);
    }
    EXPECT_EQ(queue.dropped(), 3U);
    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_EQ(log.lines()[0].text, "cannot store records, dropping them: no room left");
    store.set(true);
    queue.write(record("kept"));
    queue.flush(10s);
    ASSERT_EQ(log.lines().size(), 2U);
    EXPECT_EQ(log.lines()[1].text, "storing works again; 3 records were lost");
    queue.write(record("kept too"));
    queue.flush(10s);
    EXPECT_EQ(log.lines().size(), 2U);
    EXPECT_THAT(store.stored, ElementsAre("kept", "kept too"));
}

TEST_F(RunLogQueueTest, CountsTheRecordsThatTheStoreOmitsWithoutALogLine) {
    RunLogQueue queue(4, std::ref(store));
    store.set(true);
    for (const char* text : {"1", "left out", "2"}) queue.write(record(text));
    queue.flush(10s);
    EXPECT_EQ(queue.dropped(), 1U);
    EXPECT_THAT(store.stored, ElementsAre("1", "2"));
    EXPECT_EQ(queue.stop(10s), true);
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(RunLogQueueTest, StoresQueuedRecordsWhenItEnds) {
    store.set(true);
    {
        RunLogQueue queue(100, std::ref(store));
        for (int i = 0; i < 50; ++i) queue.write(record("x"));
    }
    EXPECT_EQ(store.stored.size(), 50U);
}

TEST_F(RunLogQueueTest, RejectsRecordsOnceStopped) {
    store.set(true);
    RunLogQueue queue(100, std::ref(store));
    queue.write(record("x"));
    EXPECT_TRUE(queue.stop(10s));
    EXPECT_EQ(store.stored.size(), 1U);
    queue.write(record("late"));
    queue.flush(10s);
    EXPECT_EQ(queue.dropped(), 1U);
    RunLogQueue unused(1, std::ref(store));
    EXPECT_TRUE(unused.stop(0ms));
}

TEST(RunLogQueueAtTheEnd, GivesUpOnAHangingStore) {
    // Both outlive the test, because the thread does.
    static HeldStore store;
    static RunLogQueue& queue = *new RunLogQueue(4, std::ref(store));
    queue.write(record("stuck"));
    store.waitUntilEntered();
    auto flushing = std::async(std::launch::async, [] { return queue.flush(1h); });
    EXPECT_FALSE(queue.stop(10ms));
    EXPECT_FALSE(flushing.get());
    const host::LogCapture log({runLogModule});
    queue.write(record("late"));
    store.set(true);
    EXPECT_TRUE(log.waitFor("storing works again; 1 records were lost", 10s));
}

TEST_F(RunLogQueueTest, WaitsForAHangingStoreOnlyUntilTheTimeout) {
    RunLogQueue queue(4, std::ref(store));
    queue.write(record("late"));
    store.waitUntilEntered();
    EXPECT_FALSE(queue.flush(10ms));
    store.set(true);
    EXPECT_TRUE(queue.flush(10s));
}

TEST_F(RunLogQueueTest, EndsPendingWaitsForAHangingStore) {
    RunLogQueue queue(4, std::ref(store));
    queue.write(record("late"));
    store.waitUntilEntered();
    auto flushing = std::async(std::launch::async, [&] { return queue.flush(1h); });
    EXPECT_EQ(flushing.wait_for(10ms), std::future_status::timeout);
    queue.endWaits();
    EXPECT_FALSE(flushing.get());
    EXPECT_FALSE(queue.flush(1h));
    store.set(true);
}

TEST(RunLogQueueThreads, AcceptRecordsFromManyWriters) {
    HeldStore store;
    store.set(true);
    RunLogQueue queue(100000, std::ref(store));
    std::vector<std::thread> writers;
    writers.reserve(4);
    for (int i = 0; i < 4; ++i)
        writers.emplace_back([&] {
            for (int n = 0; n < 500; ++n) queue.write(record("x"));
            queue.flush(10s);
        });
    for (auto& writer : writers) writer.join();
    EXPECT_EQ(store.stored.size(), 2000U);
    EXPECT_EQ(queue.dropped(), 0U);
}

// There is one agent per process, so each test starts its own process. The process finds the test's folder in its
// environment.
struct RunLogAgent : testing::Test {
    RunLogAgent() {
        testing::FLAGS_gtest_death_test_style = "threadsafe";
        if (const char* given = std::getenv("STATE_DIRECTORY")) {
            state = given;
            return;
        }
        folder.emplace();
        state = folder->path + "/state";
        setenv("STATE_DIRECTORY", state.c_str(), 1);
    }
    ~RunLogAgent() override {
        if (folder) unsetenv("STATE_DIRECTORY");
    }
    std::optional<Folder> folder;
    std::string state;
};

TEST_F(RunLogAgent, ReturnsTheTimeInUtcWithMilliseconds) {
    EXPECT_THAT(RunLogAgentImpl::getInstance().getLogCurrentUTCTime(),
                testing::MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3}Z"));
}

TEST_F(RunLogAgent, LosesRecordsUntilAStateFolderExists) {
    std::ofstream(state) << "in the way";
    EXPECT_EXIT(
        {
            auto& agent = RunLogAgentImpl::getInstance();
            agent.writeRunLog(record("1"));
            agent.writeRunLog(record("2"));
            const auto flush = [&agent] {
                while (!agent.flush()) {
                }
            };
            flush();
            const bool nothing = agent.readNewest(10).empty() && agent.dropped() == 2;
            std::filesystem::remove(state);
            agent.writeRunLog(record("3"));
            flush();
            std::exit(nothing && textsOf(agent.readNewest(10)) == std::vector<std::string>{"3"} ? 0 : 1);
        },
        testing::ExitedWithCode(0),
        testing::ContainsRegex("cannot store records, dropping them: .*not a folder(.|\n)*"
                               "storing works again; 2 records were lost"));
}

TEST_F(RunLogAgent, StoresQueuedRecordsWhenItEnds) {
    EXPECT_EXIT(
        {
            for (int i = 0; i < 200; ++i) RunLogAgentImpl::getInstance().writeRunLog(record(std::to_string(i)));
            std::exit(0);
        },
        testing::ExitedWithCode(0), "");
    const auto newest = RunLogStore::readNewest(state + "/runlog.sqlite", 1000);
    ASSERT_EQ(newest.size(), 200U);
    EXPECT_EQ(newest[0].logText, "199");
}

TEST_F(RunLogAgent, ReadsItsQueueLengthFromTheEnvironmentAndReportsAnInvalidOne) {
    setenv("TVSA_RUNLOG_QUEUE", "many", 1);
    EXPECT_EXIT(
        {
            RunLogAgentImpl::getInstance();
            std::exit(0);
        },
        testing::ExitedWithCode(0), "TVSA_RUNLOG_QUEUE: \"many\" is not a number above 0; 1024 is used");
    unsetenv("TVSA_RUNLOG_QUEUE");
}

} // namespace
