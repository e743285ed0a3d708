// A zapper on a started adapter, with the resource manager's thread and the threads of several callers.
#include "resource-manager.h"
#include "support/adapter-process.h"

#include <tvservice-adapter/zapper.h>
#include <vdl/debug.h>

#include <atomic>
#include <condition_variable>
#include <gtest/gtest.h>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace tvservice;
using namespace std::chrono_literals;

constexpr auto timeout = 60s;

// A TV service that answers every request on its own thread, as a receiving thread does, unless muted.
class AnsweringService : public support::RegisteredTvService {
public:
    static AnsweringService& get() {
        static auto& service = *new AnsweringService;
        return service;
    }
    int tvServiceReq(frame::MsgIds&, const frame::TransportInfo&,
                     const std::vector<TvServiceReq_t>& requests) override {
        const std::lock_guard lock(mutex_);
        for (const auto& request : requests) sent_.push_back(request.uri);
        if (!muted_) {
            std::vector<TvServiceInfo_t> infos;
            for (const auto& request : requests)
                infos.push_back({request.terminal, 0, request.uri, "", "", request.reqId});
            answers_.push_back(std::move(infos));
        }
        changed_.notify_all();
        return 0;
    }
    void mute(bool muted) {
        const std::lock_guard lock(mutex_);
        muted_ = muted;
    }
    std::vector<std::string> takeSent() {
        const std::lock_guard lock(mutex_);
        return std::exchange(sent_, {});
    }
    template <class Condition> bool waitFor(Condition condition) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, timeout, [&] { return condition(sent_); });
    }

    // Waits until no answer is in progress, because the manager is destroyed when the process ends.
    void settle() {
        std::unique_lock lock(mutex_);
        EXPECT_TRUE(changed_.wait_for(lock, timeout, [&] { return answers_.empty() && !answering_; }));
    }

private:
    AnsweringService() {
        std::thread([this] {
            std::unique_lock lock(mutex_);
            for (;;) {
                changed_.wait(lock, [&] { return !answers_.empty(); });
                const auto infos = std::move(answers_.front());
                answers_.erase(answers_.begin());
                answering_ = true;
                lock.unlock();
                frame::MsgIds ids;
                for (const auto& client : clients) client->tvServiceInfo(ids, frame::TransportInfo{}, infos);
                lock.lock();
                answering_ = false;
                changed_.notify_all();
            }
        }).detach();
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::string> sent_;
    std::vector<std::vector<TvServiceInfo_t>> answers_;
    bool muted_ = false, answering_ = false;
};

// The manager's clock runs a hundred times faster, so that it drops lost requests after 50 ms. The zapper's clock does
// not.
ModelTvServiceAdapter& startedAdapter() {
    static auto& adapter = *[] {
        resClock = [] {
            return std::chrono::steady_clock::time_point(std::chrono::steady_clock::now().time_since_epoch() * 100);
        };
        resWait = [](std::condition_variable& condition, std::unique_lock<std::mutex>& lock) {
            return condition.wait_until(lock, std::chrono::steady_clock::now() + 10ms);
        };
        AnsweringService::get();
        new support::RegisteredMmService;
        auto& made = support::newAdapter();
        EXPECT_EQ(made.start(), 0);
        return &made;
    }();
    return adapter;
}

TvServiceReq_t channel(int terminal, const std::string& uri) {
    TvServiceReq_t request;
    request.terminal = {0, terminal};
    request.uri = uri;
    return request;
}

struct Outcomes {
    void note(const ZapOutcome& outcome) {
        const std::lock_guard lock(mutex);
        ++counts[static_cast<int>(outcome.kind)];
        last = outcome.request.uri;
        changed.notify_all();
    }
    template <class Condition> bool waitFor(Condition condition) {
        std::unique_lock lock(mutex);
        return changed.wait_for(lock, timeout, condition);
    }
    int of(ZapOutcome::Kind kind) const { return counts[static_cast<int>(kind)]; }
    int all() const { return counts[0] + counts[1] + counts[2] + counts[3]; }

    std::mutex mutex;
    std::condition_variable changed;
    int counts[4] = {};
    std::string last;
};

class ZapperTest : public testing::Test {
protected:
    ZapperTest() {
        vdlDebugSetLevels("off"); // dropped requests are expected
        service.mute(false);
        service.takeSent();
    }
    ~ZapperTest() override {
        // Otherwise the manager's remaining requests would be sent and answered while the process ends.
        const auto end = std::chrono::steady_clock::now() + timeout;
        while (!startedAdapter().bundles().empty() && std::chrono::steady_clock::now() < end) std::this_thread::yield();
        service.settle();
        vdlDebugSetLevels("warning");
    }
    auto noting() {
        return [this](const ZapOutcome& outcome) { outcomes.note(outcome); };
    }

    ModelTvServiceAdapter& adapter = startedAdapter();
    AnsweringService& service = AnsweringService::get();
    Outcomes outcomes;
};

TEST_F(ZapperTest, GivesEveryRequestOfSeveralThreadsOneOutcome) {
    constexpr int threads = 4, each = 500;
    Zapper zapper(adapter, noting());
    std::vector<std::thread> callers;
    for (int thread = 0; thread < threads; ++thread)
        callers.emplace_back([&, thread] {
            for (int i = 0; i < each; ++i) EXPECT_EQ(zapper.want(channel((thread + i) % 3, "dvb://1")), 0);
        });
    for (auto& caller : callers) caller.join();
    EXPECT_TRUE(outcomes.waitFor([&] { return outcomes.all() == threads * each; }));
    EXPECT_EQ(outcomes.of(ZapOutcome::Kind::dropped) + outcomes.of(ZapOutcome::Kind::notSent), 0);
    EXPECT_EQ(static_cast<int>(service.takeSent().size()), outcomes.of(ZapOutcome::Kind::answered));
}

TEST_F(ZapperTest, SendsTheNextRequestWhenTheAdapterHasDroppedThePreviousOne) {
    service.mute(true);
    Zapper zapper(adapter, noting());
    zapper.want(channel(1, "dvb://lost"));
    ASSERT_TRUE(service.waitFor([](const auto& sent) { return sent.size() == 1; }));
    service.mute(false);
    zapper.want(channel(1, "dvb://2"));
    zapper.want(channel(1, "dvb://3"));
    EXPECT_TRUE(outcomes.waitFor([&] { return outcomes.of(ZapOutcome::Kind::answered) == 1; }));
    EXPECT_EQ(outcomes.of(ZapOutcome::Kind::dropped), 1);
    EXPECT_EQ(outcomes.of(ZapOutcome::Kind::replaced), 1);
    EXPECT_EQ(outcomes.last, "dvb://3");
    EXPECT_EQ(service.takeSent(), (std::vector<std::string>{"dvb://lost", "dvb://3"}));
}

TEST_F(ZapperTest, AcceptsRequestsDuringItsReports) {
    std::unique_ptr<Zapper> zapper;
    std::atomic<int> left{20};
    zapper = std::make_unique<Zapper>(adapter, [&](const ZapOutcome& outcome) {
        if (left-- > 0) zapper->want(channel(0, "dvb://again"));
        outcomes.note(outcome);
    });
    zapper->want(channel(0, "dvb://first"));
    EXPECT_TRUE(outcomes.waitFor([&] { return outcomes.of(ZapOutcome::Kind::answered) == 21; }));
}

TEST_F(ZapperTest, EndsWhileARequestIsPendingAndReportsNothingMore) {
    service.mute(true);
    {
        Zapper zapper(adapter, noting());
        zapper.want(channel(1, "dvb://lost"));
        zapper.want(channel(2, "dvb://waits"));
        ASSERT_TRUE(service.waitFor([](const auto& sent) { return sent.size() == 1; }));
    }
    service.mute(false);
    // The adapter continues: requests of others are answered after the lost one.
    Zapper next(adapter, noting());
    next.want(channel(0, "dvb://next"));
    EXPECT_TRUE(outcomes.waitFor([&] { return outcomes.all() == 1; }));
    EXPECT_EQ(outcomes.last, "dvb://next");
    EXPECT_EQ(service.takeSent(), (std::vector<std::string>{"dvb://lost", "dvb://next"}));
}

TEST_F(ZapperTest, RejectsRequestsOnceItHasEnded) {
    Zapper zapper(adapter, noting());
    zapper.end();
    zapper.end();
    EXPECT_EQ(zapper.want(channel(0, "dvb://1")), ZapQueue::hasEnded);
    EXPECT_EQ(zapper.stop({0, 0}), ZapQueue::hasEnded);
    EXPECT_EQ(outcomes.all(), 0);
}

TEST_F(ZapperTest, EndsWhileAnswersArrive) {
    for (int i = 0; i < 200; ++i) {
        Zapper zapper(adapter, noting());
        for (int terminal = 0; terminal < 3; ++terminal) zapper.want(channel(terminal, "dvb://1"));
    }
    EXPECT_TRUE(service.waitFor([](const auto& sent) { return sent.size() >= 200; }));
}

} // namespace
