// The manager's thread, its clients' and its services', and the TV service's proxy under stress, for the sanitizers to
// watch: answers that race the time limit, clients that send, leave and throw from inside a notification, managers that
// end with answers on their way. The manager's time runs a thousand times faster, so that its 5 seconds are 5
// milliseconds and its tick is one.
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

constexpr auto limit = 5ms, margin = 1ms; // of the manager, and around it, in real time
constexpr int faster = 1000;

const Clock::time_point epoch = Clock::now();
Clock::time_point fastClock() { return epoch + faster * (Clock::now() - epoch); }
Clock::time_point realTime(Clock::time_point fast) { return epoch + (fast - epoch) / faster; }

std::cv_status fastWait(std::condition_variable& condition, std::unique_lock<std::mutex>& lock) {
    return condition.wait_until(lock, Clock::now() + 1ms);
}

struct Counts {
    std::atomic<std::uint64_t> asked{0}, told{0}, justBefore{0}, justAfter{0}, thrown{0}, left{0}, sentFromInside{0};
};

class Receiver;

// A service on a thread of its own: answers what it is sent at once, at the limit, or never, and some things twice.
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
    void take(const Requests& requests, Clock::time_point answerLimit) {
        {
            const thread_safety::LockGuard lock(mutex_);
            inbox_.push_back({requests, answerLimit});
        }
        changed_.notify_one();
    }

private:
    struct Asked {
        Requests requests;
        Clock::time_point limit;
    };
    void serve();

    Receiver& receiver_;
    const bool mm_;
    std::minstd_rand random_;
    thread_safety::Mutex mutex_;
    std::condition_variable changed_;
    std::deque<Asked> inbox_ TVSA_GUARDED_BY(mutex_);
    bool ending_ TVSA_GUARDED_BY(mutex_) = false;
    std::thread thread_;
};

// A manager, its services, and the clients that hear of their answers through a proxy.
class Receiver : public tvservice::ResManager {
public:
    Receiver(Counts& counts, unsigned seed) : counts_(counts) {
        registerInfocb([this](frame::MsgIds&, const frame::TransportInfo&, const Infos&) {
            ++counts_.told;
            return 0;
        });
        proxy_.addClient(boost::make_shared<Forwarding>(*this));
        proxy_.addClient(boost::make_shared<Asking>(*this));
        for (int i = 0; i < 3; ++i) addLeaving();
        proxy_.addClient(boost::make_shared<Throwing>(counts_));
        services_[0] = std::make_unique<Service>(*this, true, seed);
        services_[1] = std::make_unique<Service>(*this, false, seed + 1);
    }
    ~Receiver() override {
        exitTask = 1; // before what the worker calls is gone
        resThread.join();
        for (auto& service : services_) service.reset();
    }

    void ask(const std::string& uri, int terminal) {
        TvServiceReq_t request;
        request.terminal = {0, terminal};
        request.uri = uri;
        frame::MsgIds ids;
        ++counts_.asked;
        tvServiceReq(ids, {}, {request});
    }
    void answered(bool mm, const Infos& infos, Clock::time_point answerLimit) {
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
        } catch (const std::domain_error&) { // of the throwing client, which is the last
            ++counts_.thrown;
        }
    }

private:
    // When the manager stops waiting for the answers to what it is sending.
    Clock::time_point limitOf(const Requests& requests) {
        const thread_safety::LockGuard lock(resMutex);
        const bool underWay = !reqQueue.empty() && *reqQueue.front()->pReqId == requests.front().reqId;
        return (underWay ? realTime(reqQueue.front()->resOps.front().startTime) : Clock::now()) + limit;
    }
    // To be called as an answer reaches the manager.
    void countDelivery(Clock::time_point answerLimit) {
        const auto beyond = Clock::now() - answerLimit;
        if (beyond <= -margin || beyond >= margin) return;
        ++(beyond < 0ms ? counts_.justBefore : counts_.justAfter);
    }
    int ReqMM(frame::MsgIds&, const frame::TransportInfo&, const Requests& requests) override {
        services_[0]->take(requests, limitOf(requests));
        return 0;
    }
    int ReqTV(frame::MsgIds&, const frame::TransportInfo&, const Requests& requests) override {
        services_[1]->take(requests, limitOf(requests));
        return 0;
    }

    struct Client : tvservice::ClientBase {
        explicit Client(Receiver& receiver) : receiver_(receiver) {}
        Receiver& receiver_;
    };
    // As the adapter's own client: what the TV service says goes to the manager.
    struct Forwarding : Client {
        using Client::Client;
        int tvServiceInfo(frame::MsgIds& ids, const frame::TransportInfo& transport, const Infos& infos) override {
            receiver_.countDelivery(receiver_.tvLimit_);
            return receiver_.TVServiceInfo(ids, transport, infos);
        }
    };
    struct Asking : Client {
        using Client::Client;
        int tvServiceInfo(frame::MsgIds&, const frame::TransportInfo&, const Infos&) override {
            if (++told_ % 8 == 0) {
                ++receiver_.counts_.sentFromInside;
                receiver_.ask("dvb://1", 7);
            }
            return 0;
        }
        std::atomic<unsigned> told_{0};
    };
    struct Leaving : Client {
        using Client::Client;
        int tvServiceInfo(frame::MsgIds&, const frame::TransportInfo&, const Infos&) override {
            if (receiver_.proxy_.removeClient(self.lock()) == 0) {
                ++receiver_.counts_.left;
                receiver_.addLeaving();
            }
            return 0;
        }
        boost::weak_ptr<tvservice::ClientInterface> self;
    };
    struct Throwing : tvservice::ClientBase {
        explicit Throwing(Counts& counts) : counts_(counts) {}
        int tvServiceInfo(frame::MsgIds&, const frame::TransportInfo&, const Infos&) override {
            if (++told_ % 4 == 0) throw std::domain_error("a client's own");
            return 0;
        }
        Counts& counts_;
        std::atomic<unsigned> told_{0};
    };

    void addLeaving() {
        const auto client = boost::make_shared<Leaving>(*this);
        client->self = client;
        proxy_.addClient(client);
    }

    Counts& counts_;
    tvservice::Proxy proxy_;
    Clock::time_point tvLimit_; // of the answer that the TV service's thread delivers
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
        receiver_.answered(mm_, infos, answerLimit);
        if (kind == 4) receiver_.answered(mm_, infos, answerLimit); // again
        lock.lock();
    }
}

// Waits until no bundle is left; asks for the queue all the while, as a debug command may.
void finish(Receiver& receiver) {
    const auto deadline = Clock::now() + 60s;
    while (!receiver.bundles().empty()) {
        if (Clock::now() > deadline) throw std::runtime_error("a bundle is neither answered nor dropped");
        std::this_thread::yield();
    }
}

void askALot(Counts& counts, std::uint64_t bundles, unsigned seed) {
    Receiver receiver(counts, seed);
    std::vector<std::thread> askers;
    for (int asker = 0; asker < 2; ++asker)
        askers.emplace_back([&, asker] {
            static const std::array<const char*, 4> uris{"dvb://1", "http://a/b", "file:///a", "rec://plain/null"};
            for (std::uint64_t i = 0; i < bundles / 2; ++i) {
                receiver.ask(uris[(i + static_cast<unsigned>(asker)) % uris.size()], asker);
                while (receiver.bundles().size() > 50) std::this_thread::yield();
            }
        });
    for (std::thread& asker : askers) asker.join();
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
    CLI::App options("Puts the manager and the proxies under stress.");
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
        askALot(counts, bundles, 1);
        startAndStop(counts, starts);
        std::printf(
            "%llu bundles asked for, %llu lists of answers told, %llu answers just before the limit, %llu just "
            "after it, %llu exceptions, %llu clients left, %llu requests from inside; %u starts\n",
            static_cast<unsigned long long>(counts.asked), static_cast<unsigned long long>(counts.told),
            static_cast<unsigned long long>(counts.justBefore), static_cast<unsigned long long>(counts.justAfter),
            static_cast<unsigned long long>(counts.thrown), static_cast<unsigned long long>(counts.left),
            static_cast<unsigned long long>(counts.sentFromInside), starts);
        const auto reached = [&](const std::atomic<std::uint64_t>& count) { return count * 200 >= bundles; };
        if (!reached(counts.told) || !reached(counts.justBefore) || !reached(counts.justAfter) ||
            !reached(counts.thrown) || !reached(counts.left) || !reached(counts.sentFromInside))
            throw std::runtime_error("a situation was hardly reached");
        checks::reportFigure("bundles", static_cast<std::int64_t>(counts.asked.load()), "bundles");
        // A second of the manager's time, which is a millisecond.
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
