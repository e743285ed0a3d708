// Clients that answer requests to the service.
#include "../killed/service-socket.h"
#include "endpoints.h"
#include "scenarios.h"

#include <tvservice/messages.h>

#include <sys/socket.h>

namespace access_check {
namespace {

namespace tv = tvservice::messages;

constexpr const char* dropMark = "timeout 5s, erase it";

// A frame whose body is the single byte that encodes an empty body.
std::string emptyFrame(const frame::MsgMeta& meta) {
    std::string bytes;
    for (const std::uint32_t word :
         {1U, meta.instance, meta.interfaceCode, meta.messageId, std::uint32_t{meta.flag}, 0U, 0U, 0U})
        bytes.append(reinterpret_cast<const char*>(&word), sizeof word);
    return bytes + '\0';
}

// The service does not answer a request; another client of the service sends the answer.
void answerFromAnotherClient(ReceiverKit& kit, const Endpoint& endpoint, const std::string& uri, Figures& figures) {
    kit.read(endpoint.part, {"fault", "mute", "on"});
    Socket client = clientOf(endpoint);
    const std::string request = kit.play("1:0", uri);
    const auto undecodable = counterOf(kit, endpoint.part, "undecodable");
    constexpr unsigned answers = 100;
    for (unsigned i = 0; i < answers; ++i)
        require(client.send(killed::answerFrame(endpoint.part, request, uri)), endpoint.name + " does not read");
    require(kit.waitFor([&] { return counterOf(kit, endpoint.part, "undecodable") == undecodable + answers; },
                        receiver::defaultTimeout),
            endpoint.name + " did not count a client's answers as undecodable");
    kit.waitForStep(request, dropMark, std::chrono::seconds(9));
    require(kit.answersTo(request).empty(), endpoint.name + ": a client's answer reached another client");
    kit.read(endpoint.part, {"fault", "clear"});
    figures.answers += answers;
}

} // namespace

void answerForTheService(Figures& figures) {
    ReceiverKit kit;
    kit.start();
    const auto endpoints = endpointsIn(kit.runtimeFolder());
    answerFromAnotherClient(kit, endpoints[0], "dvb://1.1.1", figures);
    answerFromAnotherClient(kit, endpoints[1], "rtp://239.0.0.1:5004", figures);

    // A client receives only its own answers: the listener must not receive any of the 100 answers to the other client.
    Socket requester = clientOf(endpoints[0]), listener = clientOf(endpoints[0]);
    const std::string request = emptyFrame(tv::TvServiceInfoReq::meta);
    const std::vector<std::uint32_t> answer{tv::TvServiceInfo::meta.messageId, tv::TvServiceStatusInfo::meta.messageId};
    for (int i = 0; i < 100; ++i) {
        require(requester.send(request) && receiveFrames(requester, answer.size()) == answer,
                "a client received a different answer");
        ++figures.answers;
    }
    require(listener.send(request) && receiveFrames(listener, answer.size()) == answer,
            "a client received answers to another client");
    char byte = 0;
    require(recv(listener.descriptor(), &byte, 1, MSG_DONTWAIT) < 0, "one request was answered more than once");
    kit.waitForAnswers(kit.play("0:0", "dvb://1.1.1"), 1);
    const std::string problems = kit.stop();
    require(problems.empty(), problems);
}

} // namespace access_check
