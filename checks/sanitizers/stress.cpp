// A stress test for the sanitizers, with the threads of the manager, its clients and its services, and with the TV
// service's proxy: answers race the time limit; clients send, unregister and throw inside a notification; managers end
// while answers are in flight. The manager's clock runs a thousand times faster, so that its 5 seconds are 5
// milliseconds and its tick is one millisecond.
#include "app-tvservice-proxy-main.h"
#include "checks/figure.h"
#include "resource-manager.h"

#include <genrpc/flat-region.h>
#include <tvservice/client-base.h>
#include <tvservice/messages.h>
#include <vdl/debug.h>

#include <CLI/CLI.hpp>
#include <array>
#include <atomic>
#include <boost/make_shared.hpp>
#include <boost/weak_ptr.hpp>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <deque>
#include <exception>
#include <memory>
#include <mutex>
#include <random>
#include <stdexcept>
#include <thread-safety/mutex.h>
#include <thread>
#include <vector>

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using tvservice::TvServiceInfo_t, tvservice::TvServiceReq_t;
using Requests = std::vector<TvServiceReq_t>;
using Infos = std::vector<TvServiceInfo_t>;

constexpr auto limit = 5ms, margin = 1ms; // the manager's time limit, and the range around it; in real time
constexpr int speed = 1000;

const Clock::time_point epoch = Clock::now();
Clock::time_point fastClock() { return epoch + speed * (Clock::now() - epoch); }
Clock::time_point realTime(Clock::time_point fast) { return epoch + (fast - epoch) / speed; }

std::cv_status fastWait(std::condition_variable& condition, std::unique_lock<std::mutex>& lock) {
    return condition.wait_until(lock, Clock::now() + 1ms);
}

struct Counts {
    std::atomic<std::uint64_t> requests{0}, notifications{0}, justBefore{0}, justAfter{0}, thrown{0}, unregistered{0},
        nestedRequests{0};
};

class Receiver;

// A service with its own thread. It answers requests at once, around the time limit, never, or twice.
class Service {
public:
    Service(Receiver& receiver, bool mm, unsigned seed) : receiver_(receiver), mm_(mm), random_(seed) {
        thread_ = std::thread([this] { serve(); });
    }
    ~Service() {
        {
            const thread_safety::LockGuard lock(mutex_);
            ending_ = true;
        }
        changed_.notify_one();
        thread_.join();
    }
    // answerLimit: when the manager stops waiting for the answer.
    void enqueue(const Requests& requests, Clock::time_point answerLimit) {
        {
            const thread_safety::LockGuard lock(mutex_);
            inbox_.push_back({requests, answerLimit});
        }
        changed_.notify_one();
    }

private:
    struct PendingRequests {
        Requests requests;
        Clock::time_point limit;
    };
    void serve();

    Receiver& receiver_;
    const bool mm_;
    std::minstd_rand random_;
    thread_safety::Mutex mutex_;
    std::condition_variable changed_;
    std::deque<PendingRequests> inbox_ TVSA_GUARDED_BY(mutex_);
    bool ending_ TVSA_GUARDED_BY(mutex_) = false;
    std::thread thread_;
};

// A manager, its services, and clients that a proxy notifies of the answers.
class Receiver : public tvservice::ResManager {
public:
    Receiver(Counts& counts, unsigned seed) : counts_(counts) {
        registerInfocb([this](frame::MsgIds&, const frame::TransportInfo&, const Infos&) {
            ++counts_.notifications;
            return 0;
        });
        proxy_.addClient(boost::make_shared<Forwarding>(*this));
        proxy_.addClient(boost::make_shared<NestedRequester>(*this));
        for (int i = 0; i < 3; ++i) addUnregistering();
        proxy_.addClient(boost::make_shared<Throwing>(counts_));
        services_[0] = std::make_unique<Service>(*this, true, seed);
        services_[1] = std::make_unique<Service>(*this, false, seed + 1);
    }
    ~Receiver() override {
        exitTask = 1; // the worker must end before the objects that it calls
        resThread.join();
        for (auto& service : services_) service.reset();
    }

    void ask(const std::string& uri, int terminal) {
        TvServiceReq_t request;
        request.terminal = {0, terminal};
        request.uri = uri;
        frame::MsgIds ids;
        ++counts_.requests;
        tvServiceReq(ids, {}, {request});
    }
    void deliver(bool mm, const Infos& infos, Clock::time_point answerLimit) {
        frame::MsgIds ids;
        if (mm) {
            countDelivery(answerLimit);
            MMServiceInfo(ids, {}, infos);
            return;
        }
        const auto region = genrpc::FlatRegion::create(4096);
        using Message = tvservice::messages::TvServiceInfo;
        tvLimit_ = answerLimit;
        try {
            tvservice::Proxy::callTvServiceInfo(Message::meta, {}, Message::Body::build(*region, infos), &proxy_);
        } catch (const std::domain_error&) { // from the throwing client, which is the last one
            ++counts_.thrown;
        }
    }

private:
    // When the manager will stop waiting for the answers to these requests.
    Clock::time_point limitOf(const Requests& requests) {
        const thread_safety::LockGuard lock(resMutex);
        const bool underWay = !reqQueue.empty() && *reqQueue.front()->pReqId == requests.front().reqId;
        return (underWay ? realTime(reqQueue.front()->resOps.front().startTime) : Clock::now()) + limit;
    }
    // Called when an answer reaches the manager.
    void countDelivery(Clock::time_point answerLimit) {
        const auto beyond = Clock::now() - answerLimit;
        if (beyond <= -margin || beyond >= margin) return;
        ++(beyond < 0ms ? counts_.justBefore : counts_.justAfter);
    }
    int ReqMM(frame::MsgIds&, const frame::TransportInfo&, const Requests& requests) override {
        services_[0]->enqueue(requests, limitOf(requests));
        return 0;
    }
    int ReqTV(frame::MsgIds&, const frame::TransportInfo&, const Requests& requests) override {
        services_[1]->enqueue(requests, limitOf(requests));
        return 0;
    }

    struct Client : tvservice::ClientBase {
        explicit Client(Receiver& receiver) : receiver_(receiver) {}
        Receiver& receiver_;
    };
    // Forwards the TV service's answers to the manager, as the adapter's own client does.
    struct Forwarding : Client {
        using Client::Client;
        int tvServiceInfo(frame::MsgIds& ids, const frame::TransportInfo& transport, const Infos& infos) override {
            receiver_.countDelivery(receiver_.tvLimit_);
            return receiver_.TVServiceInfo(ids, transport, infos);
        }
    };
    struct NestedRequester : Client {
        using Client::Client;
        int tvServiceInfo(frame::MsgIds&, const frame::TransportInfo&, const Infos&) override {
            if (++notifications_ % 8 == 0) {
                ++receiver_.counts_.nestedRequests;
                receiver_.ask("dvb://1", 7);
            }
            return 0;
        }
        std::atomic<unsigned> notifications_{0};
    };
    struct Unregistering : Client {
        using Client::Client;
        int tvServiceInfo(frame::MsgIds&, const frame::TransportInfo&, const Infos&) override {
            if (receiver_.proxy_.removeClient(self.lock()) == 0) {
                ++receiver_.counts_.unregistered;
                receiver_.addUnregistering();
            }
            return 0;
        }
        boost::weak_ptr<tvservice::ClientInterface> self;
    };
    struct Throwing : tvservice::ClientBase {
        explicit Throwing(Counts& counts) : counts_(counts) {}
        int tvServiceInfo(frame::MsgIds&, const frame::TransportInfo&, const Infos&) override {
            if (++notifications_ % 4 == 0) throw std::domain_error("from a client");
            return 0;
        }
        Counts& counts_;
        std::atomic<unsigned> notifications_{0};
    };

    void addUnregistering() {
        const auto client = boost::make_shared<Unregistering>(*this);
        client->self = client;
        proxy_.addClient(client);
    }

    Counts& counts_;
    tvservice::Proxy proxy_;
    Clock::time_point tvLimit_; // of the answer that the TV service's thread is delivering
    std::array<std::unique_ptr<Service>, 2> services_;
};

void Service::serve() {
    thread_safety::UniqueLock lock(mutex_);
    for (;;) {
        changed_.wait(lock, [&]() TVSA_REQUIRES(mutex_) { return ending_ || !inbox_.empty(); });
        if (ending_) return;
        const auto [requests, answerLimit] = std::move(inbox_.front());
        inbox_.pop_front();
        const auto kind = random_() % 64;
        if (kind == 0) continue; // never
        if (kind < 4) {          // around the limit
            const std::chrono::microseconds around(random_() % 2001);
            changed_.wait_until(lock, answerLimit - margin + around, [&]() TVSA_REQUIRES(mutex_) { return ending_; });
        }
        Infos infos;
        for (const TvServiceReq_t& request : requests)
            infos.push_back({request.terminal, 0, request.uri, request.uuid, {}, request.reqId});
        lock.unlock();
        receiver_.deliver(mm_, infos, answerLimit);
        if (kind == 4) receiver_.deliver(mm_, infos, answerLimit); // again
        lock.lock();
    }
}

// Waits until no bundle is left. Meanwhile it lists the queue, as a debug command may.
void finish(Receiver& receiver) {
    const auto deadline = Clock::now() + 60s;
    while (!receiver.bundles().empty()) {
        if (Clock::now() > deadline) throw std::runtime_error("a bundle is neither answered nor dropped");
        std::this_thread::yield();
    }
}

void requestContinuously(Counts& counts, std::uint64_t bundles, unsigned seed) {
    Receiver receiver(counts, seed);
    std::vector<std::thread> requesters;
    for (int requester = 0; requester < 2; ++requester)
        requesters.emplace_back([&, requester] {
            static const std::array<const char*, 4> uris{"dvb://1", "http://a/b", "file:///a", "rec://plain/null"};
            for (std::uint64_t i = 0; i < bundles / 2; ++i) {
                receiver.ask(uris[(i + static_cast<unsigned>(requester)) % uris.size()], requester);
                while (receiver.bundles().size() > 50) std::this_thread::yield();
            }
        });
    for (std::thread& requester : requesters) requester.join();
    finish(receiver);
}

void startAndStop(Counts& counts, unsigned times) {
    for (unsigned i = 0; i < times; ++i) {
        Receiver receiver(counts, i);
        receiver.ask("http://a/b", 1);
        receiver.ask("dvb://1", 2);
    }
}

} // namespace

int main(int argc, char** argv) {
    CLI::App options("Stresses the manager and the proxies.");
    std::uint64_t bundles = 2000;
    unsigned starts = 50;
    options.add_option("--bundles", bundles);
    options.add_option("--starts", starts);
    CLI11_PARSE(options, argc, argv);
    try {
        vdlDebugSetLevels("off"); // every drop is a warning
        tvservice::resClock = fastClock;
        tvservice::resWait = fastWait;
        Counts counts;
        requestContinuously(counts, bundles, 1);
        startAndStop(counts, starts);
        std::printf(
            "%llu bundles requested, %llu notifications of answers, %llu answers just before the limit, %llu just "
            "after it, %llu exceptions, %llu clients unregistered, %llu requests inside a notification; %u starts\n",
            static_cast<unsigned long long>(counts.requests), static_cast<unsigned long long>(counts.notifications),
            static_cast<unsigned long long>(counts.justBefore), static_cast<unsigned long long>(counts.justAfter),
            static_cast<unsigned long long>(counts.thrown), static_cast<unsigned long long>(counts.unregistered),
            static_cast<unsigned long long>(counts.nestedRequests), starts);
        const auto reached = [&](const std::atomic<std::uint64_t>& count) { return count * 200 >= bundles; };
        if (!reached(counts.notifications) || !reached(counts.justBefore) || !reached(counts.justAfter) ||
            !reached(counts.thrown) || !reached(counts.unregistered) || !reached(counts.nestedRequests))
            throw std::runtime_error("a situation was hardly reached");
        checks::reportFigure("bundles", static_cast<std::int64_t>(counts.requests.load()), "bundles");
        // A second of the manager's clock, which is a millisecond.
        checks::reportFigure("answers in the last second before the limit",
                             static_cast<std::int64_t>(counts.justBefore.load()), "answers");
        checks::reportFigure("answers in the first second after the limit",
                             static_cast<std::int64_t>(counts.justAfter.load()), "answers");
        checks::reportFigure("starts and stops", starts, "starts");
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "stress: %s\n", error.what());
        return 1;
    }
}
