// Clients that try to starve other clients of a service or a shell: with unfinished messages, with idle connections,
// and with more messages than it can process.
#include "honest.h"
#include "scenarios.h"

#include <tvservice/messages.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <iostream>
#include <kit/child-process.h>
#include <memory>
#include <sys/socket.h>
#include <thread>

namespace access_check {
namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr std::size_t mebibyte = std::size_t{1} << 20;
constexpr long longestAnswer = 2000; // milliseconds

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
    const long duration = millisecondsSince(begin);
    require(duration < longestAnswer, "an honest client waited more than 2 s beside " + what);
    return duration;
}

std::string beginningOf(std::size_t size) {
    return frameHeader(static_cast<std::uint32_t>(size)) + std::string(size / 8 * 5, 'x');
}

// `count` clients that each stop in the middle of a message of that size.
void leaveUnfinished(ReceiverKit& kit, const Endpoint& endpoint, std::size_t count, std::size_t size,
                     Figures& figures) {
    const auto known = honestClientOf(endpoint);
    known->ask();
    const auto refused = counterOf(kit, endpoint.part, "refused");
    const std::string part = beginningOf(size);
    std::vector<Socket> unfinished;
    for (std::size_t i = 0; i < count; ++i) {
        unfinished.push_back(clientOf(endpoint));
        unfinished.back().send(part); // may be incomplete: the service closes the connection
        figures.slowestBesideUnfinished =
            std::max({figures.slowestBesideUnfinished, askInTime(*known, "unfinished messages"),
                      askInTime(*honestClientOf(endpoint), "unfinished messages")});
        ++figures.unfinished;
    }
    require(kit.waitFor([&] { return counterOf(kit, endpoint.part, "refused") == refused + count; },
                        receiver::defaultTimeout),
            endpoint.name + " has not closed all connections with an unfinished message");
    known->ask();
}

// So many processes, each a separate peer, that their messages exceed the limit for all peers together.
void leaveUnfinishedTogether(ReceiverKit& kit, const Endpoint& endpoint, unsigned processes, Figures& figures) {
    const auto refused = counterOf(kit, endpoint.part, "refused");
    const std::filesystem::path log = kit.folder() / "unfinished.log";
    receiver::ChildCommand command;
    command.program = std::filesystem::read_symlink("/proc/self/exe");
    command.arguments = {"--unfinished", endpoint.name, endpoint.path};
    command.errorLog = log;
    std::vector<std::unique_ptr<receiver::ChildProcess>> all;
    for (unsigned i = 0; i < processes; ++i) all.push_back(std::make_unique<receiver::ChildProcess>(command));
    const auto deadline = Clock::now() + 30s;
    do {
        const long duration = playOnce(kit, "dvb://1.1.1");
        figures.slowestPlayBesideUnfinished = std::max(figures.slowestPlayBesideUnfinished, duration);
        require(duration < longestAnswer, "a play took " + std::to_string(duration) + " ms beside unfinished messages");
        require(Clock::now() < deadline, endpoint.name + " has not closed all connections with an unfinished message");
    } while (counterOf(kit, endpoint.part, "refused") < refused + processes);
    for (const auto& process : all) {
        process->wait();
        require(process->failure().empty(),
                "a process failed to leave a message unfinished: " + receiver::tailOf(log, 3));
    }
    require(countLines(logOf(kit, endpoint.part), "the unfinished messages of all peers need more than", "") > 0,
            endpoint.name + " did not apply the limit for the unfinished messages of all peers");
    figures.unfinishedTogether += processes;
}

// A new client's first request, and the end of the processes, while another client sends as fast as it can.
void floodWithMessages(ReceiverKit& kit, const Endpoint& endpoint, Figures& figures) {
    constexpr std::size_t messages = 400000, messagesPerWrite = 1000;
    std::string bytes;
    for (std::size_t i = 0; i < messagesPerWrite; ++i) bytes += frameHeader(1) + '\0';
    Socket flooder = clientOf(endpoint);
    std::atomic<std::size_t> sent{0};
    std::thread flood([&] {
        while (sent < messages && flooder.send(bytes)) sent += messagesPerWrite;
    });
    std::thread reader([&] { // reads the answers, so that other clients wait for nothing but their turn
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
        require(kit.waitFor([&] { return sent >= messagesPerWrite; }, receiver::defaultTimeout),
                "the flood did not start");
        figures.slowestBesideFlood = askInTime(*honestClientOf(endpoint), "a flood of messages");
    } catch (...) {
        join();
        throw;
    }
    try {
        figures.slowestEndBesideFlood = std::max(figures.slowestEndBesideFlood, endOfAll(kit));
    } catch (...) {
        join();
        throw;
    }
    join();
}

} // namespace

int leaveOneUnfinished(const std::vector<std::string>& arguments) {
    try {
        Socket client = clientOf({arguments.at(0), Part::tvService, false, arguments.at(1)});
        client.send(beginningOf(16 * mebibyte)); // may be incomplete: the service closes the connection
        client.receiveAll();
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "unfinished: " << error.what() << '\n';
        return 1;
    }
}

void starveOthers(unsigned processes, Figures& figures) {
    ReceiverKit kit;
    kit.start();
    const auto endpoints = endpointsIn(kit.runtimeFolder());
    setEndpoints(endpoints);
    // First: it reads the log, which leaves out lines after many others of their kind within a second.
    if (processes > 0) leaveUnfinishedTogether(kit, endpoints[0], processes, figures);
    leaveUnfinished(kit, endpoints[0], 38, 16 * mebibyte, figures);
    leaveUnfinished(kit, endpoints[0], 100, mebibyte, figures);
    const Endpoint& shell = endpoints.back();
    std::vector<std::unique_ptr<HonestClient>> idle;
    for (int i = 0; i < 100; ++i) {
        idle.push_back(honestClientOf(shell));
        idle.back()->ask();
        ++figures.evictedShells;
    }
    askInTime(*honestClientOf(shell), "idle shell clients");
    floodWithMessages(kit, endpoints[0], figures);
}

} // namespace access_check
