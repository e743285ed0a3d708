// The resource manager's worker: its cycle in simulated time, and its thread.
#include "unit/resource-manager-fixture.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdio>
#include <memory>
#include <mutex>
#include <thread>

namespace {

using namespace managertest;

// ---- the cycle ----

TEST_F(ResManagerTest, SendsStopsThenStartsAndTheMmServiceFirst) {
    manager.ask({request(1, 0, "http://x"), request(2, 0, stopUri)});
    EXPECT_TRUE(manager.work());
    EXPECT_THAT(manager.sent, ElementsAre("MM 1:0=rec://plain/null#1 2:0=rec://plain/null#1",
                                          "TV 1:0=rec://plain/null#1 2:0=rec://plain/null#1"));
    EXPECT_FALSE(manager.work());
    EXPECT_EQ(manager.answer(ResponseMM, {info(1, 0, "1")}), 0);
    EXPECT_EQ(manager.answer(ResponseTV, {info(1, 0, "1")}), 1);
    manager.sent.clear();
    EXPECT_TRUE(manager.work());
    EXPECT_THAT(manager.sent, ElementsAre("MM 1:0=http://x#1", "TV 2:0=rec://plain/null#1"));
    EXPECT_THAT(manager.reports, IsEmpty());
    EXPECT_THAT(linesWith("Sending reqid"),
                ElementsAre("Sending reqid 1, ResOperation::SendingStop, ResResponse::ResponseNO",
                            "Sending reqid 1, ResOperation::SendingStart, ResResponse::ResponseNO"));
}

TEST_F(ResManagerTest, StartsTheNextBundleOnlyWhenThePreviousOneHasEnded) {
    manager.ask({request(1, 0, "dvb://1")});
    manager.ask({request(2, 0, "dvb://2")});
    manager.work();
    EXPECT_FALSE(manager.work());
    EXPECT_EQ(manager.answer(ResponseTV, {info(1, 0, "1")}), 2);
    EXPECT_TRUE(manager.work());
    EXPECT_THAT(manager.sent, ElementsAre("TV 1:0=dvb://1#1", "TV 2:0=dvb://2#2"));
}

TEST_F(ResManagerTest, SendsWhatIsQueuedDuringAWaitInTheSameCycle) {
    SimulatedTime::get().duringWaits = {[&] { manager.ask({request(1, 0, "dvb://1")}); }};
    EXPECT_TRUE(manager.work());
    EXPECT_THAT(manager.sent, ElementsAre("TV 1:0=dvb://1#1"));
    EXPECT_THAT(linesWith("currently"), IsEmpty());
}

TEST_F(ResManagerTest, RestartsItsSecondAtEveryNotificationAndPostponesTheTimeoutCheck) {
    manager.ask({request(1, 0, "dvb://1")});
    manager.work();
    forgetLines();
    for (int i = 0; i < 9; ++i)
        SimulatedTime::get().duringWaits.emplace_back([&] {
            SimulatedTime::get().now += 900ms;
            manager.ask({request(2, 0, "dvb://2")});
            EXPECT_EQ(manager.queue().front(), "1: WaitingStart/ResponseTV");
            EXPECT_THAT(linesWith("timeoutCheck"), IsEmpty());
        });
    // The tenth wait is the first to time out: the drop that was due after five seconds happens after eight.
    EXPECT_FALSE(manager.work());
    EXPECT_THAT(SimulatedTime::get().duringWaits, IsEmpty());
    EXPECT_THAT(linesWith("timeout 5s"), testing::SizeIs(1));
    EXPECT_THAT(manager.queue(), testing::SizeIs(9));
}

TEST_F(ResManagerTest, LeavesAnEmptyQueueUntouchedForAnIdleSecond) {
    EXPECT_FALSE(manager.work());
    EXPECT_THAT(lines(), ElementsAre("5000 resource-manager.cpp:timeoutCheck(): Called "));
}

// ---- the wait ----

const auto originalWait = resWait;
const auto originalClock = resClock;

TEST(ManagerWait, TakesAWholeSecond) {
    std::mutex mutex;
    std::condition_variable condition;
    std::unique_lock lock(mutex);
    const auto begin = std::chrono::steady_clock::now();
    std::size_t waits = 0;
    while (originalWait(condition, lock) != std::cv_status::timeout) ++waits; // spurious wake-ups
    EXPECT_TRUE(lock.owns_lock());
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 1s);
    EXPECT_LT(waits, 10U);
}

// ---- the thread ----

// Whether a worker is in a wait, with the mutex released.
class Waits {
public:
    void begin() {
        const std::lock_guard lock(mutex_);
        ++begun_;
        changed_.notify_all();
    }
    bool haveBegun() {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, 20s, [&] { return begun_ > 0; });
    }
    int begun() {
        const std::lock_guard lock(mutex_);
        return begun_;
    }
    void forget() {
        const std::lock_guard lock(mutex_);
        begun_ = 0;
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    int begun_ = 0;
} waits;

class WorkingManager : public ResManager {
public:
    ~WorkingManager() override { leave(); }
    int ReqMM(frame::MsgIds&, const frame::TransportInfo&, const std::vector<TvServiceReq_t>&) override { return 0; }
    int ReqTV(frame::MsgIds&, const frame::TransportInfo&, const std::vector<TvServiceReq_t>& r) override {
        const std::lock_guard lock(sentMutex_);
        sent_.push_back("TV" + show(r));
        sentChanged_.notify_all();
        return 0;
    }
    // Whether this many lists are sent in time.
    bool sends(std::size_t count) {
        std::unique_lock lock(sentMutex_);
        return sentChanged_.wait_for(lock, 20s, [&] { return sent_.size() >= count; });
    }
    // Returns once the worker, which has begun a wait, has released the mutex.
    void meetTheWait() { const thread_safety::LockGuard lock(resMutex); }
    unsigned threadId() { return static_cast<unsigned>(resThread.native_handle()); }
    // Ends the worker before the objects that it calls are destroyed.
    void leave() {
        if (!resThread.joinable()) return;
        exitTask = 1;
        {
            const thread_safety::LockGuard lock(resMutex);
            waitsEnd = true;
        }
        resCond.notify_one();
        resThread.join();
    }

    static inline bool waitsEnd = false; // guarded by the manager's mutex

private:
    std::mutex sentMutex_;
    std::condition_variable sentChanged_;
    std::vector<std::string> sent_;
};

class ManagerThread : public testing::Test {
protected:
    ManagerThread() {
        SimulatedTime::install();
        resetPlayingTerminals();
        waits.forget();
        WorkingManager::waitsEnd = false;
        resClock = originalClock;
    }
};

TEST_F(ManagerThread, SendsABundleThatIsQueuedDuringAWaitAtOnce) {
    // Without a timeout: only the notification wakes the worker.
    resWait = [](std::condition_variable& condition, std::unique_lock<std::mutex>& lock) {
        waits.begin();
        if (!WorkingManager::waitsEnd) condition.wait(lock);
        return WorkingManager::waitsEnd ? std::cv_status::timeout : std::cv_status::no_timeout;
    };
    WorkingManager manager;
    frame::MsgIds ids;
    for (std::size_t sent = 0; sent < 6; sent += 2) {
        ASSERT_TRUE(waits.haveBegun());
        waits.forget();
        manager.meetTheWait();
        manager.tvServiceReq(ids, {}, {request(1, 0, "dvb://1", "first")});
        ASSERT_TRUE(manager.sends(sent + 1));
        // The next bundle follows as soon as this one has ended.
        manager.tvServiceReq(ids, {}, {request(1, 0, "dvb://2", "second")});
        EXPECT_EQ(manager.TVServiceInfo(ids, {}, {info(1, 0, "first")}), 2);
        ASSERT_TRUE(manager.sends(sent + 2));
        EXPECT_EQ(manager.TVServiceInfo(ids, {}, {info(1, 0, "second")}), 2);
    }
}

TEST_F(ManagerThread, LogsItsIdOnceAndSendsFromANamedThread) {
    const host::LogCapture log{{genrpc::ManagerLog}};
    resWait = originalWait;
    WorkingManager manager;
    frame::MsgIds ids;
    char id[16];
    std::snprintf(id, sizeof id, "%x", manager.threadId());
    manager.tvServiceReq(ids, {}, {request(1, 0, "dvb://1", "r")});
    ASSERT_TRUE(manager.sends(1));
    manager.leave();
    const auto lines = show(log.lines());
    EXPECT_EQ(
        std::count(lines.begin(), lines.end(), std::string("5000 resource-manager.cpp:ResMTask(): tid ") + id + " "),
        1);
    EXPECT_THAT(lines, testing::Contains("4000 resource-manager.cpp:ResMTask(): Sending reqid r, "
                                         "ResOperation::SendingStart, ResResponse::ResponseNO"));
}

// A manager whose worker waits until it is asked to end.
class IdleManager : public ResManager {
public:
    IdleManager() { exitRequest = &exitTask; }
    static std::cv_status wait(std::condition_variable&, std::unique_lock<std::mutex>& lock) {
        waits.begin();
        lock.unlock();
        while (exitRequest == nullptr || *exitRequest.load() == 0) std::this_thread::yield();
        lock.lock();
        return std::cv_status::timeout;
    }

    static inline std::atomic<const std::atomic<int>*> exitRequest = nullptr; // of the only manager, once it is created
};

TEST_F(ManagerThread, EndsAfterTheWaitDuringWhichItIsAskedToEnd) {
    resWait = IdleManager::wait;
    IdleManager::exitRequest = nullptr;
    auto manager = std::make_unique<IdleManager>();
    ASSERT_TRUE(waits.haveBegun());
    manager.reset();
    EXPECT_EQ(waits.begun(), 1);
}

} // namespace
