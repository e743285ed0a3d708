// Floods of connections at every socket while honest clients measure their round trips.
#include "../killed/process-size.h"
#include "../killed/service-socket.h"
#include "flood.h"
#include "honest.h"
#include "scenarios.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <fstream>
#include <functional>
#include <thread-safety/mutex.h>
#include <thread>

namespace access_check {
namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

// The rates of each kind at each endpoint, forty a second in all. Clients that send nothing, or no complete hello,
// exceed the limit for pending connections, so that the oldest are evicted all the time.
constexpr struct {
    const char* kind;
    unsigned perSecond;
} floodRates[] = {{kinds::silent, 18}, {kinds::slow, 18}, {kinds::garbage, 2}, {kinds::abrupt, 2}};
constexpr auto interval = 2ms; // between an honest client's requests
constexpr auto idleTime = 4s;
constexpr auto startTime = 2s; // the floods' processes use much processor time while they start

long microsecondsSince(Clock::time_point begin) {
    return static_cast<long>(std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - begin).count());
}

long percentile99(std::vector<long> times) {
    require(times.size() >= 100, "too few round trips were measured");
    const auto at = times.begin() + static_cast<std::ptrdiff_t>(times.size() * 99 / 100);
    std::nth_element(times.begin(), at, times.end());
    return *at;
}

long median(std::vector<long> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

// Honest clients: one at each endpoint that sends requests all the time, and one that reconnects again and again.
class Honest {
public:
    explicit Honest(const std::vector<Endpoint>& endpoints) : endpoints_(endpoints), times_(endpoints.size()) {
        for (std::size_t i = 0; i < endpoints.size(); ++i)
            threads_.emplace_back([this, i] { guarded([&] { askRepeatedly(i); }); });
        threads_.emplace_back([this] { guarded([this] { reconnectRepeatedly(); }); });
    }
    ~Honest() { end(); }
    Honest(const Honest&) = delete;
    Honest& operator=(const Honest&) = delete;

    // Runs the action and returns the 99th percentile of the round trips at each endpoint meanwhile.
    std::vector<long> during(const std::function<void()>& action) {
        measure(true);
        action();
        measure(false);
        std::vector<long> result;
        for (const auto& times : measured()) result.push_back(percentile99(times));
        return result;
    }

    void end() {
        ended_ = true;
        for (std::thread& thread : threads_)
            if (thread.joinable()) thread.join();
    }

    std::string failure() {
        const thread_safety::LockGuard lock(mutex_);
        return failure_;
    }

    long newClients = 0, slowestNewClient = 0; // valid after end()

private:
    void measure(bool measuring) {
        const thread_safety::LockGuard lock(mutex_);
        measuring_ = measuring;
        if (measuring)
            for (auto& times : times_) times.clear();
    }
    std::vector<std::vector<long>> measured() {
        const thread_safety::LockGuard lock(mutex_);
        return times_;
    }
    void guarded(const std::function<void()>& work) {
        try {
            work();
        } catch (const std::exception& error) {
            const thread_safety::LockGuard lock(mutex_);
            failure_ = error.what();
        }
    }
    void askRepeatedly(std::size_t number) {
        const auto client = honestClientOf(endpoints_[number]);
        client->ask();
        while (!ended_) {
            const auto begin = Clock::now();
            client->ask();
            const long duration = microsecondsSince(begin);
            {
                const thread_safety::LockGuard lock(mutex_);
                if (measuring_) times_[number].push_back(duration);
            }
            std::this_thread::sleep_for(interval);
        }
    }
    void reconnectRepeatedly() {
        for (std::size_t i = 0; !ended_; ++i) {
            const auto begin = Clock::now();
            honestClientOf(endpoints_[i % endpoints_.size()])->ask();
            slowestNewClient = std::max(slowestNewClient, microsecondsSince(begin));
            ++newClients;
            std::this_thread::sleep_for(20ms);
        }
    }

    const std::vector<Endpoint>& endpoints_;
    std::atomic<bool> ended_{false};
    thread_safety::Mutex mutex_;
    std::string failure_ TVSA_GUARDED_BY(mutex_);
    bool measuring_ TVSA_GUARDED_BY(mutex_) = false;
    std::vector<std::vector<long>> times_ TVSA_GUARDED_BY(mutex_); // in microseconds
    std::vector<std::thread> threads_;
};

// Writes a file with the first message of a client, which slow clients send byte by byte.
std::filesystem::path helloFileFor(const ReceiverKit& kit, const Endpoint& endpoint) {
    auto file = kit.folder() / (endpoint.name + ".hello");
    std::ofstream(file) << (endpoint.shell ? std::string(R"({"line":"stats"})") : killed::helloOf(endpoint.path));
    return file;
}

// What an endpoint logs about a silent client that it evicts.
const char* evictionLineOf(const Endpoint& endpoint) {
    return endpoint.shell ? "evicted a shell client: it sent no request while 64 others connected"
                          : "rejected: peer sent no hello while 64 others connected";
}

std::filesystem::path floodLog(const ReceiverKit& kit) { return kit.folder() / "flood.log"; }

using Floods = std::vector<std::unique_ptr<receiver::ChildProcess>>;

void waitForAll(Floods& floods, const ReceiverKit& kit) {
    for (auto& flood : floods) {
        flood->wait();
        require(flood->failure().empty(), "a flood failed: " + receiver::tailOf(floodLog(kit), 3));
    }
}

} // namespace

void floodEndpoints(unsigned rounds, std::chrono::seconds each, Figures& figures) {
    ReceiverKit kit;
    kit.start();
    const auto endpoints = endpointsIn(kit.runtimeFolder());
    setEndpoints(endpoints);
    std::vector<std::filesystem::path> hellos;
    hellos.reserve(endpoints.size());
    for (const Endpoint& endpoint : endpoints) hellos.push_back(helloFileFor(kit, endpoint));
    std::vector<std::vector<long>> idle(endpoints.size()), loaded(endpoints.size());
    Honest honest(endpoints);
    std::this_thread::sleep_for(startTime);
    for (unsigned round = 0; round < rounds; ++round) {
        const auto idleTimes = honest.during([] { std::this_thread::sleep_for(idleTime); });
        Floods floods;
        for (std::size_t i = 0; i < endpoints.size(); ++i)
            for (const auto& [kind, perSecond] : floodRates) {
                const auto count = static_cast<unsigned>(each.count()) * perSecond;
                floods.push_back(startFlood(kind, endpoints[i].path, count, perSecond, hellos[i], floodLog(kit)));
                figures.hostile += count;
            }
        std::this_thread::sleep_for(startTime);
        const auto loadedTimes = honest.during([&] {
            const auto end = Clock::now() + each - startTime;
            while (Clock::now() < end) {
                for (const Part part : receiver::allParts)
                    figures.mostDescriptors =
                        std::max(figures.mostDescriptors, killed::sizeOf(kit.processId(part)).descriptors);
                std::this_thread::sleep_for(100ms);
            }
        });
        waitForAll(floods, kit);
        for (std::size_t i = 0; i < endpoints.size(); ++i) {
            idle[i].push_back(idleTimes[i]);
            loaded[i].push_back(loadedTimes[i]);
            figures.worstRound = std::max(figures.worstRound, 100 * loadedTimes[i] / idleTimes[i]);
        }
    }
    honest.end();
    require(honest.failure().empty(), honest.failure());
    for (const Endpoint& endpoint : endpoints)
        require(countLines(logOf(kit, endpoint.part), evictionLineOf(endpoint), "") > 0,
                endpoint.name + " has evicted no client");
    for (std::size_t i = 0; i < endpoints.size(); ++i)
        figures.roundTrips[endpoints[i].name] = {median(idle[i]), median(loaded[i])};
    figures.newClients = honest.newClients;
    figures.slowestNewClient = honest.slowestNewClient / 1000;
    const std::string problems = kit.stop();
    require(problems.empty(), problems);
}

namespace {

// Clients of a flood that a service or a shell rejects, but for `accepted` of them. The log must report each of them,
// in a line or in the number of suppressed lines.
struct Rejected {
    const char* kind;
    unsigned clients, perSecond, accepted;
    const char* text;
    const char* format;
};
Figures::Lines floodTheLogOf(ReceiverKit& kit, const Endpoint& endpoint, const Rejected& rejected) {
    const auto& [kind, clients, perSecond, accepted, text, format] = rejected;
    const auto log = logOf(kit, endpoint.part);
    const auto before = receiver::readLog(log).size();
    const auto begin = Clock::now();
    Floods floods;
    constexpr unsigned processes = 2;
    for (unsigned i = 0; i < processes; ++i)
        floods.push_back(startFlood(kind, endpoint.path, clients / processes, perSecond, helloFileFor(kit, endpoint),
                                    floodLog(kit)));
    waitForAll(floods, kit);
    const auto reported = [&] { return countLines(log, rejected.text, rejected.format); };
    kit.waitFor([&] { return reported() >= rejected.clients - rejected.accepted; }, receiver::defaultTimeout);
    require(reported() == clients - accepted,
            endpoint.name + ": the log reports " + std::to_string(reported()) + " rejected clients");
    Figures::Lines lines;
    lines.clients = clients - accepted;
    lines.seconds = microsecondsSince(begin) / 1000000 + 1;
    lines.written = static_cast<long>(receiver::readLog(log).size() - before);
    constexpr long eachSecond = 21; // 20 and one about the suppressed ones
    lines.allowed = (lines.seconds + 1) * eachSecond;
    return lines;
}

} // namespace

void floodTheLog(unsigned hellos, Figures& figures) {
    ReceiverKit kit;
    kit.start();
    const Endpoint endpoint = endpointsIn(kit.runtimeFolder()).front();
    const auto refused = counterOf(kit, endpoint.part, "refused");
    figures.badHellos = floodTheLogOf(kit, endpoint,
                                      {kinds::garbage, hellos, 0, 0, "rejected: peer's first bytes are not a hello",
                                       "service %s: client %llu %s: %s"});
    require(counterOf(kit, endpoint.part, "refused") - refused == hellos,
            std::to_string(counterOf(kit, endpoint.part, "refused") - refused) + " bad hellos were counted");
    const std::string problems = kit.stop();
    require(problems.empty(), problems);
}

void floodTheLogOfAShell(unsigned clients, Figures& figures) {
    ReceiverKit kit;
    kit.start();
    const Endpoint endpoint = endpointsIn(kit.runtimeFolder()).back();
    std::vector<std::unique_ptr<HonestClient>> users;
    constexpr std::size_t most = 16; // clients of a shell, with the one that has started the receiver
    while (users.size() + 1 < most) {
        users.push_back(honestClientOf(endpoint));
        users.back()->ask();
    }
    constexpr unsigned waiting = 64; // clients that may be connected without having made a request
    figures.shellClients = floodTheLogOf(
        kit, endpoint,
        {kinds::silent, clients, 2000, waiting, "evicted a shell client: it sent no request while 64 others connected",
         "evicted a shell client: it sent no request while %zu others connected"});
    for (const auto& user : users) user->ask();
    figures.slowestEndBesideFlood = std::max(figures.slowestEndBesideFlood, endOfAll(kit));
}

} // namespace access_check
