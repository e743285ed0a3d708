// Clients whose every request makes the service notify all clients: of locks, of channels and their tracks.
#include "endpoints.h"
#include "frame.h"
#include "scenarios.h"

#include <tvservice/messages.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <memory>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <vector>

namespace access_check {
namespace {

namespace tv = tvservice::messages;

constexpr int attackers = 16, locksOfEach = 16; // these fill the table of locks
constexpr unsigned requestsPerWrite = 500;

std::string lockOf(int id, bool locked) {
    tvservice::TvServiceParentalLockInfo_t lock;
    lock.terminal = {8, id};
    lock.intParam1 = locked;
    return frameOf<tv::SetParentalLockInfo>(lock);
}

std::string playOf(int id, const std::string& uri) {
    tvservice::TvServiceReq_t request;
    request.terminal = {7, id};
    request.uri = uri;
    return frameOf<tv::TvServiceReq>(std::vector{request});
}

std::string locksOf(int attacker) {
    std::string requests;
    for (int i = 0; i < locksOfEach; ++i) requests += lockOf(attacker * locksOfEach + i, true);
    return requests;
}

// What an attacker sends again and again. After each lock and unlock the service notifies all clients of the state of
// all terminals; after each play it sends them six messages about the channel.
std::string floodOfLocks(int attacker) {
    std::string requests;
    for (unsigned i = 0; i < requestsPerWrite; ++i) requests += lockOf(attacker * locksOfEach, i % 2 != 0);
    return requests;
}
std::string floodOfPlays(int attacker) {
    std::string requests;
    for (unsigned i = 0; i < requestsPerWrite; ++i)
        requests += playOf(attacker, i % 2 != 0 ? "dvb://1.1.1" : "dvb://1.1.2");
    return requests;
}

// A client that sends the same requests as fast as it can, and reads everything it receives.
class Attacker {
public:
    Attacker(const Endpoint& endpoint, const std::string& first, const std::string& flood)
        : socket_(clientOf(endpoint)) {
        require(socket_.send(first), endpoint.name + " does not read");
        reader_ = std::thread([this] {
            char bytes[64 * 1024];
            for (;;) {
                const ssize_t count = recv(socket_.descriptor(), bytes, sizeof bytes, 0);
                if (count == 0 || (count < 0 && errno != EINTR && errno != EAGAIN)) return;
            }
        });
        writer_ = std::thread([this, flood] {
            while (socket_.send(flood)) ++sent_;
        });
    }
    ~Attacker() {
        shutdown(socket_.descriptor(), SHUT_RDWR);
        writer_.join();
        reader_.join();
    }
    unsigned sent() const { return sent_; }

private:
    Socket socket_;
    std::atomic<unsigned> sent_{0};
    std::thread reader_, writer_;
};

} // namespace

void floodWithBroadcasts(unsigned plays, Figures& figures) {
    for (const auto& floodOf : {floodOfLocks, floodOfPlays}) {
        ReceiverKit kit;
        kit.start();
        const auto endpoints = endpointsIn(kit.runtimeFolder());
        const Endpoint& endpoint = *std::find_if(endpoints.begin(), endpoints.end(), [](const Endpoint& known) {
            return !known.shell && known.part == Part::tvService;
        });
        {
            std::vector<std::unique_ptr<Attacker>> all;
            for (int i = 0; i < attackers; ++i)
                all.push_back(std::make_unique<Attacker>(endpoint, locksOf(i), floodOf(i)));
            const auto floodStarted = [&] {
                return std::all_of(all.begin(), all.end(), [](const auto& attacker) { return attacker->sent() > 0; });
            };
            require(kit.waitFor(floodStarted, receiver::defaultTimeout), "the flood did not start");
            for (unsigned i = 0; i < plays; ++i)
                figures.slowestPlayBesideBroadcasts =
                    std::max(figures.slowestPlayBesideBroadcasts, playOnce(kit, "dvb://1.1.1"));
            figures.slowestEndBesideBroadcasts =
                std::max(figures.slowestEndBesideBroadcasts, endOf(kit, endpoint.part));
        }
        const std::string problems = kit.stop(); // the other parts
        require(problems.empty(), problems);
    }
}

} // namespace access_check
