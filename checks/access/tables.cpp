// Peers that invent terminals, so that every table grows.
#include "../killed/process-size.h"
#include "endpoints.h"
#include "frame.h"
#include "honest.h"
#include "scenarios.h"

#include <genrpc/send.h>
#include <mmservice/messages.h>
#include <tvservice/messages.h>

#include <algorithm>
#include <chrono>
#include <thread>
#include <type_traits>
#include <utility>

namespace access_check {
namespace {

using Clock = std::chrono::steady_clock;
namespace tv = tvservice::messages;

// Each service shows it without further notifications.
constexpr const char *stream = "rtp://239.0.0.1:5004", *recording = "rec://film";

template <class Request> Request requestFor(int id) {
    Request request;
    request.terminal = {7, id};
    if constexpr (requires { request.uri; })
        request.uri = std::is_same_v<Request, tvservice::TvServiceReq_t> ? recording : stream;
    if constexpr (requires { request.intParam1; }) request.intParam1 = 1;
    return request;
}

// A client's requests to a service for an invented terminal.
std::string requestsFor(Part service, int id) {
    if (service == Part::mmService)
        return frameOf<mmservice::messages::MmServiceReq>(std::vector{requestFor<mmservice::MMServiceReq_t>(id)});
    return frameOf<tv::TvServiceReq>(std::vector{requestFor<tvservice::TvServiceReq_t>(id)}) +
           frameOf<tv::SetParentalLockInfo>(requestFor<tvservice::TvServiceParentalLockInfo_t>(id)) +
           frameOf<tv::TvServiceAudioReq>(requestFor<tvservice::TvServiceAudioReq_t>(id)) +
           frameOf<tv::TvServiceTeletextReq>(requestFor<tvservice::TvServiceTeletextReq_t>(id)) +
           frameOf<tv::TvServiceSwapWinReq>(tvservice::TvServiceSwapWinReq_t{id});
}

// Returns how many entries did not fit. Requires that there are some.
long checkTables(ReceiverKit& kit, Part part, const char* counter) {
    long excess = 0;
    for (const auto& table : kit.ask(part, {"stats", "tables"})) {
        require(table.at("held") <= table.at("most"), table.dump() + " holds more than its limit");
        excess += table.at(counter).get<long>();
    }
    require(excess > 0, std::string(receiver::nameOf(part)) + " reached no table's limit");
    return excess;
}

// Clients fill their share of each table of a service, one after the other. Then each disconnects, or all stay. After
// that a play by another client on a new terminal must get result 0.
void fillInTurns(ReceiverKit& kit, const Endpoint& endpoint, const std::string& uri, bool stay) {
    constexpr int share = 64, rounds = 6;
    std::vector<Socket> staying;
    for (int round = 0; round < rounds; ++round) {
        std::string requests;
        std::vector<tvservice::TvServiceReq_t> tvPlays;
        std::vector<mmservice::MMServiceReq_t> mmPlays;
        for (int id = 0; id < share; ++id) {
            tvPlays.push_back(requestFor<tvservice::TvServiceReq_t>(round * share + id));
            mmPlays.push_back(requestFor<mmservice::MMServiceReq_t>(round * share + id));
            auto lock = requestFor<tvservice::TvServiceParentalLockInfo_t>(round * share + id);
            lock.terminal.type = 8;
            if (endpoint.part == Part::tvService) requests += frameOf<tv::SetParentalLockInfo>(lock);
        }
        requests += endpoint.part == Part::tvService ? frameOf<tv::TvServiceReq>(tvPlays)
                                                     : frameOf<mmservice::messages::MmServiceReq>(mmPlays);
        const std::uint32_t answer = endpoint.part == Part::tvService
                                         ? tv::TvServiceInfo::meta.messageId
                                         : mmservice::messages::MmServiceInfo::meta.messageId;
        Socket client = clientOf(endpoint);
        require(client.send(requests), endpoint.name + " does not read");
        while (receiveFrames(client, 1).front() != answer) {
        }
        if (stay) staying.push_back(std::move(client));
    }
    for (const auto& table : kit.ask(endpoint.part, {"stats", "tables"}))
        if (table.at("table") == "terminals")
            require(table.at("held") == table.at("most"), "the table of terminals is not full");
    const auto answers = kit.waitForAnswers(kit.play(stay ? "6:1" : "6:0", uri), 1);
    require(answers.size() == 1 && answers[0].result == 0, endpoint.name + " does not play on a new terminal");
}

} // namespace

void fillTheTablesOfServices(unsigned terminals, Figures& figures) {
    const std::pair<Part, const char*> services[] = {{Part::tvService, "dvb://1.1.1"}, {Part::mmService, stream}};
    for (const auto& [part, uri] : services) {
        ReceiverKit kit;
        kit.start();
        const auto endpoints = endpointsIn(kit.runtimeFolder());
        const Endpoint& endpoint =
            *std::find_if(endpoints.begin(), endpoints.end(),
                          [part = part](const Endpoint& known) { return !known.shell && known.part == part; });
        const long before = killed::sizeOf(kit.processId(part)).kibibytes;
        for (const bool stay : {false, true}) fillInTurns(kit, endpoint, uri, stay);
        Socket attacker = clientOf(endpoint); // reads no answers
        std::string requests;
        for (unsigned id = 0; id < terminals; ++id) {
            requests += requestsFor(part, static_cast<int>(id));
            if ((id + 1) % 50 == 0)
                require(attacker.send(std::exchange(requests, {})), endpoint.name + " does not read");
            if ((id + 1) % 500 == 0) figures.slowestPlay = std::max(figures.slowestPlay, playOnce(kit, uri));
        }
        figures.refusedTerminals += checkTables(kit, part, "refused");
        figures.mostMemory = std::max(figures.mostMemory, killed::sizeOf(kit.processId(part)).kibibytes - before);
        figures.slowestEnd = std::max(figures.slowestEnd, endOf(kit, part));
        const std::string problems = kit.stop(); // the other parts
        require(problems.empty(), problems);
    }
}

void fillTheTablesOfApplications(unsigned answers, Figures& figures) {
    ReceiverKit kit;
    kit.start();
    setEndpoints(endpointsIn(kit.runtimeFolder()));
    kit.kill(Part::tvService);
    host::MessageQueue queue; // replaces it
    constexpr std::size_t bufferBytes = 16 * 1024;
    host::QueueChannel& endpoint = queue.serve(tvservice::serviceName, tvservice::messageSet(), bufferBytes);
    queue.start();
    require(kit.waitFor([&] { return !endpoint.clients().empty(); }, receiver::defaultTimeout),
            "the framework process does not connect");
    const pid_t process = kit.processId(Part::frameHost);
    const long before = killed::sizeOf(process).kibibytes;
    const auto answer = [&](unsigned id, std::size_t length) {
        const std::vector<tvservice::TvServiceInfo_t> infos{
            {{9, static_cast<int>(id)}, 0, std::string(length, 'x'), "", "", std::to_string(id)}};
        for (;;) {
            const int result = genrpc::send<tv::TvServiceInfo>(
                endpoint, {.ids = frame::MsgIds::none, .transport = nullptr, .firstBytes = bufferBytes}, infos);
            if (result == 0) return;
            require(result == -EAGAIN, "an answer cannot be sent");
            std::this_thread::yield(); // the queue is full
        }
    };
    for (unsigned id = 0; id < answers; ++id) {
        answer(id, id % 100 == 0 ? 1024 * 1024 : 20);
        if ((id + 1) % 1000 == 0) {
            const auto begin = Clock::now();
            (void)kit.ask(Part::frameHost, {"terminals"});
            figures.slowestList = std::max(figures.slowestList, millisecondsSince(begin));
        }
    }
    require(kit.waitFor([&] { return kit.newestNotification() >= answers; }, std::chrono::seconds(60)),
            "the answers do not arrive");
    figures.dropped += checkTables(kit, Part::frameHost, "dropped");
    figures.mostMemory = std::max(figures.mostMemory, killed::sizeOf(process).kibibytes - before);
    figures.slowestEnd = std::max(figures.slowestEnd, endOf(kit, Part::frameHost));
    queue.stop();
    const std::string problems = kit.stop(); // the other parts
    require(problems.empty(), problems);
}

} // namespace access_check
