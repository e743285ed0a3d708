// Somebody zaps while an answer is lost, over the real manager in simulated time: without a ZapQueue, with a request
// twice a second until a pause; and with one. Prints "figure NAME VALUE" lines.
#include "resource-manager.h"

#include <tvservice-adapter/zap-queue.h>
#include <vdl/debug.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace std::chrono_literals;
using tvservice::TvServiceReq_t;
using Clock = std::chrono::steady_clock;

// What happens at a time; of several at one time, what was planned first.
struct Event {
    Clock::time_point when;
    std::function<void()> happens;
};

Clock::time_point now;
std::vector<Event> plan;

void at(Clock::time_point when, std::function<void()> happens) { plan.push_back({when, std::move(happens)}); }

void happenOne(Clock::time_point until) {
    std::size_t next = plan.size();
    for (std::size_t i = 0; i < plan.size(); ++i)
        if (plan[i].when <= until && (next == plan.size() || plan[i].when < plan[next].when)) next = i;
    if (next == plan.size()) {
        now = until;
        return;
    }
    const Event event = std::move(plan[next]);
    plan.erase(plan.begin() + static_cast<std::ptrdiff_t>(next));
    now = std::max(now, event.when);
    event.happens();
}

// The manager with its worker played here, over a TV service that answers in 20 ms but for the first request.
class Receiver final : public tvservice::ResManager {
public:
    Receiver() : ResManager(WithoutWorker{}) {
        now = Clock::time_point{100s};
        plan.clear();
        tvservice::resClock = [] { return now; };
        tvservice::resWait = [](std::condition_variable&, std::unique_lock<std::mutex>& lock) {
            lock.unlock();
            const bool whole = receiver->waitASecond();
            lock.lock();
            return whole ? std::cv_status::timeout : std::cv_status::no_timeout;
        };
        receiver = this;
        registerInfocb([this](frame::MsgIds&, const frame::TransportInfo&, const auto& infos) {
            answered.emplace_back(now, infos.front().uri);
            if (queue != nullptr) queue->answer(infos);
            return 0;
        });
    }

    int ReqMM(frame::MsgIds&, const frame::TransportInfo&, const std::vector<TvServiceReq_t>&) override { return 0; }
    int ReqTV(frame::MsgIds&, const frame::TransportInfo&, const std::vector<TvServiceReq_t>& requests) override {
        sent.emplace_back(now, requests.front().uri);
        if (sent.size() == 1) return 0; // its answer is lost
        at(now + 20ms, [this, request = requests.front()] {
            frame::MsgIds ids;
            TVServiceInfo(ids, {}, {{request.terminal, 0, request.uri, "", "", request.reqId}});
            notified_ = true;
        });
        return 0;
    }

    int ask(const TvServiceReq_t& request) {
        frame::MsgIds ids;
        const int result = tvServiceReq(ids, {}, {request});
        notified_ = true;
        mostQueued = std::max(mostQueued, bundles().size());
        return result;
    }
    bool has(const std::string& reqId) {
        for (const auto& bundle : bundles())
            if (bundle.reqId == reqId) return true;
        return false;
    }
    bool hasAnswered(const std::string& uri) const {
        return std::any_of(answered.begin(), answered.end(), [&](const auto& answer) { return answer.second == uri; });
    }
    void work(Clock::time_point until) {
        while (now < until) cycle({"resource-manager.cpp", 1, "ResMTask"});
    }

    std::vector<std::pair<Clock::time_point, std::string>> sent, answered;
    std::size_t mostQueued = 0;
    tvservice::ZapQueue* queue = nullptr;

private:
    static inline Receiver* receiver = nullptr;

    // Whether a second passed without a notification.
    bool waitASecond() {
        const auto end = now + 1s;
        for (notified_ = false; !notified_ && now < end;) happenOne(end);
        return !notified_;
    }

    bool notified_ = false;
};

TvServiceReq_t channel(int terminal, int number) {
    TvServiceReq_t request;
    request.terminal = {0, terminal + 1}; // not the main one, whose lost answers go to the run log
    request.uri = "dvb://" + std::to_string(number);
    return request;
}

tvservice::ZapQueue::Surroundings over(Receiver& receiver) {
    return {[&receiver](const TvServiceReq_t& request) { return receiver.ask(request); },
            [&receiver](const std::string& reqId) { return receiver.has(reqId); },
            [] { return now; },
            {}};
}

// As a Zapper's thread does.
void keepLooking(tvservice::ZapQueue& queue) {
    at(now + 250ms, [&queue] {
        queue.look();
        keepLooking(queue);
    });
}

void figure(const char* name, Clock::duration value) {
    std::printf("figure %.2f %s\n", std::chrono::duration<double>(value).count(), name);
}
void figure(const char* name, std::size_t value) { std::printf("figure %s %s\n", std::to_string(value).c_str(), name); }

bool failed = false;
void expect(bool condition, const char* what) {
    if (condition) return;
    std::printf("not so: %s\n", what);
    failed = true;
}

// A request every half second for a minute, then a pause.
void withoutAZapQueue() {
    Receiver receiver;
    const auto start = now;
    constexpr int requests = 120;
    for (int i = 0; i < requests; ++i) at(start + i * 500ms, [&receiver, i] { receiver.ask(channel(0, i)); });
    const auto pause = start + (requests - 1) * 500ms;
    receiver.work(start + 2min);
    expect(receiver.sent.size() == requests, "every request is sent in the end");
    expect(receiver.sent[1].first > pause, "nothing is sent before the pause");
    expect(receiver.answered.size() == requests - 1, "all but the lost one are answered");
    figure("without it: seconds in which nothing is answered", receiver.answered.front().first - start);
    figure("without it: requests queued at most", receiver.mostQueued);
    figure("without it: seconds from the last request until the lost one is given up", receiver.sent[1].first - pause);
}

// Requests on five terminals ten times a second for a minute; the delay between them and the manager's looks varies.
void withAZapQueue() {
    constexpr int zaps = 600, terminals = 5;
    Clock::duration longest{};
    std::size_t mostQueued = 0;
    for (int shift = 0; shift < 100; ++shift) {
        Receiver receiver;
        tvservice::ZapQueue queue(over(receiver));
        receiver.queue = &queue;
        const auto start = now;
        queue.want(channel(0, zaps)); // whose answer is lost
        at(start + shift * 10ms, [&queue] { keepLooking(queue); });
        for (int i = 0; i < zaps; ++i)
            at(start + shift * 1ms + i * 100ms, [&queue, i] { queue.want(channel(i % terminals, i)); });
        receiver.work(start + 90s);
        expect(receiver.answered.size() > 1, "something is answered with a queue");
        if (failed) return;
        longest = std::max(longest, receiver.answered.front().first - start);
        mostQueued = std::max(mostQueued, receiver.mostQueued);
        for (int last = zaps - terminals; last < zaps; ++last)
            expect(receiver.hasAnswered(channel(0, last).uri), "every terminal ends on its last channel");
    }
    expect(longest <= 7500ms, "a lost answer costs at most 7.5 s");
    expect(mostQueued == 1, "at most one request is queued");
    figure("with it: seconds in which nothing is answered", longest);
    figure("with it: requests queued at most", mostQueued);
}

void twentyZaps() {
    Receiver receiver;
    receiver.ask(channel(1, 0));
    receiver.work(now + 10s); // the lost one
    tvservice::ZapQueue queue(over(receiver));
    receiver.queue = &queue;
    receiver.sent.assign(1, {now, "lost"});
    for (int i = 1; i <= 20; ++i) at(now + i * 1ms / 2, [&queue, i] { queue.want(channel(0, i)); });
    receiver.work(now + 5s);
    expect(receiver.sent.size() == 3 && receiver.sent.back().second == "dvb://20",
           "twenty quick zaps end on the last channel after two requests");
    figure("with it: requests for twenty zaps in 10 ms", receiver.sent.size() - 1);
}

} // namespace

int main() {
    vdlDebugSetLevels("off"); // that a request is dropped is meant
    withoutAZapQueue();
    withAZapQueue();
    twentyZaps();
    return failed ? EXIT_FAILURE : EXIT_SUCCESS;
}
