// How a request comes to the moment at which something happens.
#include "ordeal.h"
#include "service-socket.h"

#include <utility>

namespace killed {
namespace {

// Long enough for a machine under load to strike while an answer is on its way.
constexpr const char* answerDelay = "600";

const char* answerTextOf(Part service) {
    return service == Part::tvService ? "ResResponse::ResponseTV" : "ResResponse::ResponseMM";
}

} // namespace

void Ordeal::comeTo() {
    const bool mute = situation_.fate == Fate::mute;
    switch (situation_.moment) {
        case Moment::beforeStop:
            if (mute) setFault(partner_, {"mute", "on"});
            return;
        case Moment::stopAsked:
            return comeToStopAsked();
        case Moment::stopAnswered:
            return comeToStopAnswered();
        case Moment::startAsked:
            return comeToStartAsked();
        case Moment::answered:
            reqId_ = play("0:0", media);
            if (!mute) return;
            setFault(partner_, {"mute", "on"});
            reqId_ = ask("0:0", uri_);
            return;
        case Moment::firstExchange:
            return comeToFirstExchange();
    }
}

// Until its fate comes, the service answers nothing: for good when muteness is its fate, else for a while.
void Ordeal::withholdAnswers() {
    if (situation_.fate == Fate::mute)
        setFault(partner_, {"mute", "on"});
    else
        setFault(partner_, {"delay", answerDelay});
}

void Ordeal::comeToStopAsked() {
    withholdAnswers();
    const auto before = receivedBy(partner_);
    reqId_ = ask("0:0", media);
    awaitLine("Sending reqid ", reqId_, ", ResOperation::SendingStop");
    awaitReceived(partner_, before + 1);
}

// The other service takes its time, so that the request goes no further.
void Ordeal::comeToStopAnswered() {
    setFault(other_, {"delay", answerDelay});
    reqId_ = ask("0:0", media);
    awaitLine("Receiving req_id ", reqId_, std::string(",ResOperation::WaitingStop,") + answerTextOf(partner_));
    if (situation_.fate == Fate::mute) setFault(partner_, {"mute", "on"});
}

void Ordeal::comeToStartAsked() {
    const bool mute = situation_.fate == Fate::mute, stopsFirst = partner_ == Part::mmService;
    if (mute && stopsFirst) {
        comeToStopAnswered();
        return awaitLine("Sending reqid ", reqId_, ", ResOperation::SendingStart");
    }
    withholdAnswers();
    const auto before = receivedBy(partner_);
    reqId_ = ask("0:0", uri_);
    awaitLine("Sending reqid ", reqId_, ", ResOperation::SendingStart");
    awaitReceived(partner_, before + (stopsFirst ? 2 : 1));
}

// The service stands still from before the connection is made, so that nothing answers the client's greeting.
void Ordeal::comeToFirstExchange() {
    kit_.kill(partner_);
    reqId_ = ask("0:0", media);
    if (situation_.fate == Fate::babbling) {
        const std::string& hello = partner_ == Part::tvService ? tvHello_ : mmHello_;
        impersonate(socketOf(partner_), hello.substr(0, hello.size() / 2) + garbage(partner_, 0));
        exchanging_ = !connection().at("connected").get<bool>();
        return;
    }
    kit_.freeze(Part::frameHost);
    kit_.start(partner_);
    if (situation_.fate == Fate::mute) setFault(partner_, {"mute", "on"});
    kit_.freeze(partner_);
    kit_.thaw(Part::frameHost);
    await([&] { return hasClient(kit_.processId(partner_), socketOf(partner_)); }, "a client's connection");
    exchanging_ = !connection().at("connected").get<bool>();
}

// Behind the request under way; they have a service each, or both.
void Ordeal::askOnOtherTerminals() {
    for (const auto& [terminal, uri] : {std::pair{"1:0", live}, {"3:0", media}, {"4:0", live}})
        queued_.push_back({ask(terminal, uri), terminal, uri});
}

// Whether the request was where it was to be when it happened. What is logged later is of no interest, be it that the
// framework process is asked to exit and takes its time.
bool Ordeal::isExact() {
    const auto logged = [&](const std::string& words, const std::string& reqId, const std::string& after = {}) {
        const receiver::LogLine* const line = log_.about(words, reqId + after);
        return line != nullptr && line->time < struck_;
    };
    switch (situation_.moment) {
        case Moment::beforeStop:
            return logged("finished req_id ", earlier_) && newestReqId() == earlier_;
        case Moment::stopAsked:
            return !logged("Receiving req_id ", reqId_,
                           std::string(",ResOperation::WaitingStop,") + answerTextOf(partner_));
        case Moment::stopAnswered:
            return !logged("Sending reqid ", reqId_, ", ResOperation::SendingStart");
        case Moment::startAsked:
            return !logged("finished req_id ", reqId_);
        case Moment::answered: // muteness shows with the request after that
            return situation_.fate == Fate::mute ? !logged("finished req_id ", reqId_)
                                                 : logged("finished req_id ", reqId_);
        case Moment::firstExchange:
            return exchanging_;
    }
    return false;
}

} // namespace killed
