// Clients that try to keep a service or a shell from others: with messages that they never finish, with connections
// that they forget, with more messages than anybody can handle.
#include "honest.h"
#include "scenarios.h"

#include <tvservice/messages.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <sys/socket.h>
#include <thread>

namespace access_check {
namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr std::size_t mebibyte = std::size_t{1} << 20;
constexpr auto longestAnswer = 2s;

std::string frameHeader(std::uint32_t size) {
    const frame::MsgMeta& meta = tvservice::messages::TvServiceInfoReq::meta;
    std::string bytes;
    for (const std::uint32_t word :
         {size, meta.instance, meta.interfaceCode, meta.messageId, std::uint32_t{meta.flag}, 0U, 0U, 0U})
        bytes.append(reinterpret_cast<const char*>(&word), sizeof word);
    return bytes;
}

long askInTime(HonestClient& client, const std::string& what) {
    const auto begin = Clock::now();
    client.ask();
    const auto took = Clock::now() - begin;
    require(took < longestAnswer, "an honest client waited for more than 2 s beside " + what);
    return static_cast<long>(std::chrono::duration_cast<std::chrono::milliseconds>(took).count());
}

// So many that each stop in the middle of a message of that size.
void leaveUnfinished(ReceiverKit& kit, const Door& door, std::size_t count, std::size_t size, Figures& figures) {
    const auto known = honestClientOf(door);
    known->ask();
    const auto refused = counterOf(kit, door.part, "refused");
    const std::string part = frameHeader(static_cast<std::uint32_t>(size)) + std::string(size / 8 * 5, 'x');
    std::vector<Socket> unfinished;
    for (std::size_t i = 0; i < count; ++i) {
        unfinished.push_back(clientOf(door));
        unfinished.back().say(part); // which may be cut short, as the service ends the connection
        figures.slowestBesideUnfinished =
            std::max({figures.slowestBesideUnfinished, askInTime(*known, "unfinished messages"),
                      askInTime(*honestClientOf(door), "unfinished messages")});
        ++figures.unfinished;
    }
    require(kit.waitFor([&] { return counterOf(kit, door.part, "refused") == refused + count; }, receiver::patience),
            door.name + " has not ended all connections with an unfinished message");
    known->ask();
}

// Another client's first exchange, and the end of the process, while one sends as fast as it can.
void floodWithMessages(ReceiverKit& kit, const Door& door, Figures& figures) {
    constexpr std::size_t messages = 400000, together = 1000;
    std::string bytes;
    for (std::size_t i = 0; i < together; ++i) bytes += frameHeader(1) + '\0';
    Socket flooder = clientOf(door);
    std::atomic<std::size_t> sent{0};
    std::thread flood([&] {
        while (sent < messages && flooder.say(bytes)) sent += together;
    });
    std::thread reader([&] { // the answers, so that nothing but the turns keeps the others waiting
        char answers[64 * 1024];
        while (recv(flooder.descriptor(), answers, sizeof answers, 0) > 0) {
        }
    });
    const auto join = [&] {
        shutdown(flooder.descriptor(), SHUT_RDWR);
        flood.join();
        reader.join();
    };
    try {
        require(kit.waitFor([&] { return sent >= together; }, receiver::patience), "the flood did not begin");
        figures.slowestBesideFlood = askInTime(*honestClientOf(door), "a flood of messages");
    } catch (...) {
        join();
        throw;
    }
    const auto begin = Clock::now();
    const std::string complaints = kit.stop();
    const auto took = Clock::now() - begin;
    join();
    require(complaints.empty(), complaints);
    require(took < 10s, "the receiver did not end beside a flood of messages");
}

} // namespace

void starveOthers(Figures& figures) {
    ReceiverKit kit;
    kit.start();
    const auto doors = doorsIn(kit.runtimeFolder());
    setEndpoints(doors);
    leaveUnfinished(kit, doors[0], 38, 16 * mebibyte, figures);
    leaveUnfinished(kit, doors[0], 100, mebibyte, figures);
    const Door& shell = doors.back();
    std::vector<std::unique_ptr<HonestClient>> forgotten;
    for (int i = 0; i < 100; ++i) {
        forgotten.push_back(honestClientOf(shell));
        forgotten.back()->ask();
        ++figures.evictedShells;
    }
    askInTime(*honestClientOf(shell), "idle shell clients");
    floodWithMessages(kit, doors[0], figures);
}

} // namespace access_check
