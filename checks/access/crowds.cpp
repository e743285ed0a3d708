// Crowds at every socket while honest clients measure what they get.
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

// Of each kind at each endpoint, forty between them: as many that say nothing, or nothing whole, that more than may
// wait without a word do, so that the oldest of them are evicted all the time.
constexpr struct {
    const char* kind;
    unsigned perSecond;
} crowd[] = {{kinds::silent, 18}, {kinds::slow, 18}, {kinds::garbage, 2}, {kinds::abrupt, 2}};
constexpr auto pace = 2ms; // between an honest client's questions
constexpr auto quietTime = 4s;
constexpr auto settling = 2s; // until the crowd's processes have started, which takes the processors

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

// Honest clients: one of each endpoint that asks all the time, and one that comes anew again and again.
class Honest {
public:
    explicit Honest(const std::vector<Endpoint>& endpoints) : endpoints_(endpoints), times_(endpoints.size()) {
        for (std::size_t i = 0; i < endpoints.size(); ++i)
            threads_.emplace_back([this, i] { guarded([&] { askOn(i); }); });
        threads_.emplace_back([this] { guarded([this] { comeAnew(); }); });
    }
    ~Honest() { end(); }
    Honest(const Honest&) = delete;
    Honest& operator=(const Honest&) = delete;

    // The 99th percentile at each endpoint while something takes its time.
    std::vector<long> during(const std::function<void()>& something) {
        measure(true);
        something();
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

    std::string complaint() {
        const thread_safety::LockGuard lock(mutex_);
        return complaint_;
    }

    long newcomers = 0, slowestNewcomer = 0; // after the end

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
            complaint_ = error.what();
        }
    }
    void askOn(std::size_t number) {
        const auto client = honestClientOf(endpoints_[number]);
        client->ask();
        while (!ended_) {
            const auto begin = Clock::now();
            client->ask();
            const long took = microsecondsSince(begin);
            {
                const thread_safety::LockGuard lock(mutex_);
                if (measuring_) times_[number].push_back(took);
            }
            std::this_thread::sleep_for(pace);
        }
    }
    void comeAnew() {
        for (std::size_t i = 0; !ended_; ++i) {
            const auto begin = Clock::now();
            honestClientOf(endpoints_[i % endpoints_.size()])->ask();
            slowestNewcomer = std::max(slowestNewcomer, microsecondsSince(begin));
            ++newcomers;
            std::this_thread::sleep_for(20ms);
        }
    }

    const std::vector<Endpoint>& endpoints_;
    std::atomic<bool> ended_{false};
    thread_safety::Mutex mutex_;
    std::string complaint_ TVSA_GUARDED_BY(mutex_);
    bool measuring_ TVSA_GUARDED_BY(mutex_) = false;
    std::vector<std::vector<long>> times_ TVSA_GUARDED_BY(mutex_); // in microseconds
    std::vector<std::thread> threads_;
};

// What a client of a endpoint says first, for those who say it slowly.
std::filesystem::path wordsFor(const ReceiverKit& kit, const Endpoint& endpoint) {
    auto file = kit.folder() / (endpoint.name + ".words");
    std::ofstream(file) << (endpoint.shell ? std::string(R"({"line":"stats"})") : killed::helloOf(endpoint.path));
    return file;
}

// What a endpoint says of one that has come and said nothing, while too many others did the same.
const char* evicted(const Endpoint& endpoint) {
    return endpoint.shell ? "evicted a shell client: it sent no request while 64 others connected"
                          : "rejected: peer sent no hello while 64 others connected";
}

std::filesystem::path floodLog(const ReceiverKit& kit) { return kit.folder() / "flood.log"; }

using Floods = std::vector<std::unique_ptr<receiver::ChildProcess>>;

void waitForAll(Floods& floods, const ReceiverKit& kit) {
    for (auto& flood : floods) {
        flood->wait();
        require(flood->failure().empty(), "a crowd did not come: " + receiver::tailOf(floodLog(kit), 3));
    }
}

} // namespace

void crowdTheEndpoints(unsigned rounds, std::chrono::seconds each, Figures& figures) {
    ReceiverKit kit;
    kit.start();
    const auto endpoints = endpointsIn(kit.runtimeFolder());
    setEndpoints(endpoints);
    std::vector<std::filesystem::path> words;
    words.reserve(endpoints.size());
    for (const Endpoint& endpoint : endpoints) words.push_back(wordsFor(kit, endpoint));
    std::vector<std::vector<long>> quiet(endpoints.size()), crowded(endpoints.size());
    Honest honest(endpoints);
    std::this_thread::sleep_for(settling);
    for (unsigned round = 0; round < rounds; ++round) {
        const auto alone = honest.during([] { std::this_thread::sleep_for(quietTime); });
        Floods floods;
        for (std::size_t i = 0; i < endpoints.size(); ++i)
            for (const auto& [kind, perSecond] : crowd) {
                const auto count = static_cast<unsigned>(each.count()) * perSecond;
                floods.push_back(startFlood(kind, endpoints[i].path, count, perSecond, words[i], floodLog(kit)));
                figures.crowd += count;
            }
        std::this_thread::sleep_for(settling);
        const auto pressed = honest.during([&] {
            const auto end = Clock::now() + each - settling;
            while (Clock::now() < end) {
                for (const Part part : receiver::allParts)
                    figures.mostDescriptors =
                        std::max(figures.mostDescriptors, killed::sizeOf(kit.processId(part)).descriptors);
                std::this_thread::sleep_for(100ms);
            }
        });
        waitForAll(floods, kit);
        for (std::size_t i = 0; i < endpoints.size(); ++i) {
            quiet[i].push_back(alone[i]);
            crowded[i].push_back(pressed[i]);
            figures.worstRound = std::max(figures.worstRound, 100 * pressed[i] / alone[i]);
        }
    }
    honest.end();
    require(honest.complaint().empty(), honest.complaint());
    for (const Endpoint& endpoint : endpoints)
        require(linesLike(logOf(kit, endpoint.part), evicted(endpoint), "") > 0,
                "nobody was evicted at " + endpoint.name);
    for (std::size_t i = 0; i < endpoints.size(); ++i)
        figures.roundTrips[endpoints[i].name] = {median(quiet[i]), median(crowded[i])};
    figures.newcomers = honest.newcomers;
    figures.slowestNewcomer = honest.slowestNewcomer / 1000;
    const std::string complaints = kit.stop();
    require(complaints.empty(), complaints);
}

namespace {

// So many clients of a kind, as floods make them, that a service or a shell rejects but for a few: each has to be in
// the log, in lines or in those about lines held back.
struct Rejected {
    const char* kind;
    unsigned clients, perSecond, spared;
    const char* text;
    const char* format;
};
Figures::Lines floodTheLogOf(ReceiverKit& kit, const Endpoint& endpoint, const Rejected& rejected) {
    const auto& [kind, clients, perSecond, spared, text, format] = rejected;
    const auto log = logOf(kit, endpoint.part);
    const auto before = receiver::readLog(log).size();
    const auto begin = Clock::now();
    Floods floods;
    constexpr unsigned processes = 2;
    for (unsigned i = 0; i < processes; ++i)
        floods.push_back(
            startFlood(kind, endpoint.path, clients / processes, perSecond, wordsFor(kit, endpoint), floodLog(kit)));
    waitForAll(floods, kit);
    const auto told = [&] { return linesLike(log, rejected.text, rejected.format); };
    kit.waitFor([&] { return told() >= rejected.clients - rejected.spared; }, receiver::defaultTimeout);
    require(told() == clients - spared, endpoint.name + ": the log tells of " + std::to_string(told()) + " rejected");
    Figures::Lines lines;
    lines.clients = clients - spared;
    lines.seconds = microsecondsSince(begin) / 1000000 + 1;
    lines.written = static_cast<long>(receiver::readLog(log).size() - before);
    constexpr long eachSecond = 21; // 20 and the one about the others
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
    const std::string complaints = kit.stop();
    require(complaints.empty(), complaints);
}

void floodTheLogOfAShell(unsigned clients, Figures& figures) {
    ReceiverKit kit;
    kit.start();
    const Endpoint endpoint = endpointsIn(kit.runtimeFolder()).back();
    std::vector<std::unique_ptr<HonestClient>> users;
    constexpr std::size_t most = 16; // that a shell serves, one of which has started the receiver
    while (users.size() + 1 < most) {
        users.push_back(honestClientOf(endpoint));
        users.back()->ask();
    }
    constexpr unsigned waiting = 64; // that may wait without having asked for anything
    figures.shellClients = floodTheLogOf(
        kit, endpoint,
        {kinds::silent, clients, 2000, waiting, "evicted a shell client: it sent no request while 64 others connected",
         "evicted a shell client: it sent no request while %zu others connected"});
    for (const auto& user : users) user->ask();
    figures.slowestEndBesideFlood = std::max(figures.slowestEndBesideFlood, endOfAll(kit));
}

} // namespace access_check
