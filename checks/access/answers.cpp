// Clients that answer what was asked of the service.
#include "../killed/service-socket.h"
#include "endpoints.h"
#include "scenarios.h"

#include <tvservice/messages.h>

#include <sys/socket.h>

namespace access_check {
namespace {

namespace tv = tvservice::messages;

constexpr const char* dropMark = "timeout 5s, erase it";

// A frame without a body but the byte that stands for none.
std::string emptyFrame(const frame::MsgMeta& meta) {
    std::string bytes;
    for (const std::uint32_t word :
         {1U, meta.instance, meta.interfaceCode, meta.messageId, std::uint32_t{meta.flag}, 0U, 0U, 0U})
        bytes.append(reinterpret_cast<const char*>(&word), sizeof word);
    return bytes + '\0';
}

// A request waits for the service's answer, and another client of the service gives one.
void answerInTheServicesPlace(ReceiverKit& kit, const Endpoint& endpoint, const std::string& uri, Figures& figures) {
    kit.read(endpoint.part, {"fault", "mute", "on"});
    Socket client = clientOf(endpoint);
    const std::string request = kit.play("1:0", uri);
    const auto undecodable = counterOf(kit, endpoint.part, "undecodable");
    constexpr unsigned answers = 100;
    for (unsigned i = 0; i < answers; ++i)
        require(client.say(killed::answerFrame(endpoint.part, request, uri)), endpoint.name + " does not listen");
    require(kit.waitFor([&] { return counterOf(kit, endpoint.part, "undecodable") == undecodable + answers; },
                        receiver::defaultTimeout),
            endpoint.name + " did not count the answers of a client as wrong");
    kit.waitForStep(request, dropMark, std::chrono::seconds(9));
    require(kit.answersTo(request).empty(), endpoint.name + ": a client's answer reached another one");
    kit.read(endpoint.part, {"fault", "clear"});
    figures.answers += answers;
}

} // namespace

void answerForOthers(Figures& figures) {
    ReceiverKit kit;
    kit.start();
    const auto endpoints = endpointsIn(kit.runtimeFolder());
    answerInTheServicesPlace(kit, endpoints[0], "dvb://1.1.1", figures);
    answerInTheServicesPlace(kit, endpoints[1], "rtp://239.0.0.1:5004", figures);

    // Who has not asked hears nothing: of 100 answers to somebody else the listener gets none before its own.
    Socket asker = clientOf(endpoints[0]), listener = clientOf(endpoints[0]);
    const std::string question = emptyFrame(tv::TvServiceInfoReq::meta);
    const std::vector<std::uint32_t> answer{tv::TvServiceInfo::meta.messageId, tv::TvServiceStatusInfo::meta.messageId};
    for (int i = 0; i < 100; ++i) {
        require(asker.say(question) && hearFrames(asker, answer.size()) == answer, "the asker has another answer");
        ++figures.answers;
    }
    require(listener.say(question) && hearFrames(listener, answer.size()) == answer,
            "who did not ask heard what was said to another one");
    char more = 0;
    require(recv(listener.descriptor(), &more, 1, MSG_DONTWAIT) < 0, "who asked once was answered more than once");
    kit.waitForAnswers(kit.play("0:0", "dvb://1.1.1"), 1);
    const std::string complaints = kit.stop();
    require(complaints.empty(), complaints);
}

} // namespace access_check
