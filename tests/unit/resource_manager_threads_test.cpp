// The resource manager used from many threads at once.
#include "unit/resource-manager-fixture.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <condition_variable>
#include <deque>
#include <future>
#include <map>
#include <mutex>
#include <set>
#include <thread>

namespace {

using namespace managertest;

// Runs work(0) to work(count - 1), each on its own thread, all released together.
template <class Work> void together(int count, const Work& work) {
    std::atomic<bool> go{false};
    std::vector<std::thread> threads;
    for (int i = 0; i < count; ++i)
        threads.emplace_back([&, i] {
            while (!go) std::this_thread::yield();
            work(i);
        });
    go = true;
    for (std::thread& thread : threads) thread.join();
}

constexpr int clients = 4;
constexpr int asked = 50; // by each client

class ConcurrentIntake : public ResManagerTest {};

TEST_F(ConcurrentIntake, QueuesEveryBundleOnceWithAUniqueIdInItsClientsOrder) {
    log.reset();
    together(clients, [&](int client) {
        for (int i = 0; i < asked; ++i) EXPECT_EQ(manager.ask({request(client, 0, "dvb://" + std::to_string(i))}), 0);
    });
    ASSERT_EQ(manager.queued().size(), static_cast<std::size_t>(clients * asked));
    EXPECT_EQ(manager.reqIdSeq, static_cast<unsigned>(clients * asked + 1));
    std::set<std::string> ids;
    std::array<int, clients> next{};
    for (const auto& bundle : manager.queued()) {
        ids.insert(*bundle->pReqId);
        ASSERT_EQ(bundle->pTV->size(), 1U);
        const TvServiceReq_t& start = bundle->pTV->front();
        EXPECT_EQ(start.reqId, *bundle->pReqId);
        auto& expected = next[static_cast<std::size_t>(start.terminal.type)];
        EXPECT_EQ(start.uri, "dvb://" + std::to_string(expected++));
    }
    for (int number = 1; number <= clients * asked; ++number) EXPECT_EQ(ids.count(std::to_string(number)), 1U);
}

TEST_F(ConcurrentIntake, CreatesOneIdAtATime) {
    log.reset();
    while (manager.reqIdLock.test_and_set()) {
    }
    std::promise<std::string> made;
    std::thread asking([&] {
        std::string id;
        manager.createReqID({request(1, 0, "dvb://1")}, id);
        made.set_value(id);
    });
    auto id = made.get_future();
    EXPECT_EQ(id.wait_for(50ms), std::future_status::timeout);
    manager.reqIdSeq = 70;
    manager.reqIdLock.clear();
    EXPECT_EQ(id.get(), "70");
    asking.join();
}

TEST_F(ConcurrentIntake, QueuesBundlesInTheOrderOfTheirAssumptions) {
    log.reset();
    together(clients, [&](int client) {
        for (int i = 0; i < asked; ++i) manager.ask({request(1, 0, (i + client) % 2 == 0 ? "http://x" : "dvb://1")});
    });
    ASSERT_EQ(manager.queued().size(), static_cast<std::size_t>(clients * asked));
    bool mmPlays = false;
    for (const auto& bundle : manager.queued()) {
        if (bundle->pTV->empty()) {
            mmPlays = true;
        } else {
            EXPECT_EQ(bundle->pStop->size(), mmPlays ? 1U : 0U) << "in bundle " << *bundle->pReqId;
            mmPlays = false;
        }
    }
}

// Services that answer on their own threads, as in the framework, and the reports to clients.
class AnsweredManager : public ResManager {
public:
    AnsweredManager() {
        registerInfocb([this](frame::MsgIds&, const frame::TransportInfo&, const std::vector<TvServiceInfo_t>& infos) {
            const std::lock_guard lock(mutex_);
            for (const TvServiceInfo_t& record : infos) ++reported_[record.reqId];
            changed_.notify_all();
            return 0;
        });
        services_[0] = std::thread([this] { serve(mm_, &ResManager::MMServiceInfo); });
        services_[1] = std::thread([this] { serve(tv_, &ResManager::TVServiceInfo); });
    }
    ~AnsweredManager() override {
        {
            const std::lock_guard lock(mutex_);
            closing_ = true;
            changed_.notify_all();
        }
        for (std::thread& service : services_) service.join();
        exitTask = 1; // before the objects that the worker calls are destroyed
        resThread.join();
    }
    int ReqMM(frame::MsgIds&, const frame::TransportInfo&, const std::vector<TvServiceReq_t>& requests) override {
        return hand(mm_, requests);
    }
    int ReqTV(frame::MsgIds&, const frame::TransportInfo&, const std::vector<TvServiceReq_t>& requests) override {
        return hand(tv_, requests);
    }

    // Waits until records of this many request ids have come. Returns their number per id; fewer ids if they do not
    // come.
    std::map<std::string, int> reportedFor(std::size_t idCount) {
        std::unique_lock lock(mutex_);
        changed_.wait_for(lock, 60s, [&] { return reported_.size() >= idCount; });
        return reported_;
    }

private:
    using Inbox = std::deque<std::vector<TvServiceReq_t>>;

    int hand(Inbox& inbox, const std::vector<TvServiceReq_t>& requests) {
        const std::lock_guard lock(mutex_);
        inbox.push_back(requests);
        changed_.notify_all();
        return 0;
    }
    template <class Answer> void serve(Inbox& inbox, Answer answer) {
        frame::MsgIds ids;
        std::unique_lock lock(mutex_);
        while (true) {
            changed_.wait(lock, [&] { return closing_ || !inbox.empty(); });
            if (inbox.empty()) return;
            std::vector<TvServiceInfo_t> infos;
            for (const TvServiceReq_t& r : inbox.front())
                infos.push_back(info(r.terminal.type, r.terminal.id, r.reqId, 0, r.uri));
            inbox.pop_front();
            lock.unlock();
            (this->*answer)(ids, {}, infos);
            lock.lock();
        }
    }

    std::mutex mutex_; // guards all members below except the threads
    std::condition_variable changed_;
    Inbox mm_, tv_;
    std::map<std::string, int> reported_;
    bool closing_ = false;
    std::array<std::thread, 2> services_;
};

TEST(ConcurrentManager, CompletesEveryBundleWithConcurrentRequestsAnswersAndInspections) {
    SimulatedTime::install();
    resetPlayingTerminals();
    resWait = [](std::condition_variable& condition, std::unique_lock<std::mutex>& lock) {
        return condition.wait_until(lock, std::chrono::steady_clock::now() + 1s);
    };
    const host::LogCapture log{{genrpc::ManagerLog}}; // lines come from all threads, too
    AnsweredManager manager;                          // its clock stands still, so that no bundle is ever overdue
    const std::string uris[] = {"dvb://1", "http://x", stopUri, "file:///PVR+/1"};
    together(clients + 2, [&](int thread) {
        frame::MsgIds ids;
        for (int i = 0; i < asked; ++i) {
            const std::string number = std::to_string(thread) + "/" + std::to_string(i);
            if (thread < clients)
                manager.tvServiceReq(ids, {}, {request(1, 0, uris[(thread + i) % 4], number)});
            else if (thread == clients)
                manager.TVServiceInfo(ids, {}, {info(2, 0, "unasked " + number)});
            else
                for (const BundleStatus& bundle : manager.bundles()) EXPECT_FALSE(bundle.steps.empty());
        }
    });
    constexpr std::size_t answered = std::size_t{clients + 1} * asked;
    const auto reported = manager.reportedFor(answered);
    EXPECT_EQ(reported.size(), answered);
    for (const auto& [id, records] : reported) EXPECT_EQ(records, 1) << id;
    EXPECT_THAT(manager.bundles(), IsEmpty());
}

} // namespace
