// Brings a request to the moment at which the fault is injected.
#include "fault-injector.h"
#include "service-socket.h"

#include <utility>

namespace killed {
namespace {

// Milliseconds: long enough to inject the fault before the answer, even on a machine under load.
constexpr const char* answerDelay = "600";

const char* answerTextOf(Part service) {
    return service == Part::tvService ? "ResResponse::ResponseTV" : "ResResponse::ResponseMM";
}

} // namespace

void FaultInjector::reachMoment() {
    const bool mute = situation_.fault == Fault::mute;
    switch (situation_.moment) {
        case Moment::beforeStop:
            if (mute) setFault(partner_, {"mute", "on"});
            return;
        case Moment::stopSent:
            return reachStopSent();
        case Moment::stopAnswered:
            return reachStopAnswered();
        case Moment::startSent:
            return reachStartSent();
        case Moment::answered:
            reqId_ = play("0:0", media);
            if (!mute) return;
            setFault(partner_, {"mute", "on"});
            reqId_ = requestPlay("0:0", uri_);
            return;
        case Moment::firstExchange:
            return reachFirstExchange();
    }
}

// Makes the service answer after the fault is injected, or never, if the fault is that it is mute.
void FaultInjector::withholdAnswers() {
    if (situation_.fault == Fault::mute)
        setFault(partner_, {"mute", "on"});
    else
        setFault(partner_, {"delay", answerDelay});
}

void FaultInjector::reachStopSent() {
    withholdAnswers();
    const auto before = receivedBy(partner_);
    reqId_ = requestPlay("0:0", media);
    awaitLine("Sending reqid ", reqId_, ", ResOperation::SendingStop");
    awaitReceived(partner_, before + 1);
}

// The other service answers late, so that the request does not proceed.
void FaultInjector::reachStopAnswered() {
    setFault(other_, {"delay", answerDelay});
    reqId_ = requestPlay("0:0", media);
    awaitLine("Receiving req_id ", reqId_, std::string(",ResOperation::WaitingStop,") + answerTextOf(partner_));
    if (situation_.fault == Fault::mute) setFault(partner_, {"mute", "on"});
}

void FaultInjector::reachStartSent() {
    const bool mute = situation_.fault == Fault::mute, stopsFirst = partner_ == Part::mmService;
    if (mute && stopsFirst) {
        reachStopAnswered();
        return awaitLine("Sending reqid ", reqId_, ", ResOperation::SendingStart");
    }
    withholdAnswers();
    const auto before = receivedBy(partner_);
    reqId_ = requestPlay("0:0", uri_);
    awaitLine("Sending reqid ", reqId_, ", ResOperation::SendingStart");
    awaitReceived(partner_, before + (stopsFirst ? 2 : 1));
}

// Freezes the service before the connection is made, so that nothing answers the client's hello.
void FaultInjector::reachFirstExchange() {
    kit_.kill(partner_);
    reqId_ = requestPlay("0:0", media);
    if (situation_.fault == Fault::garbage) {
        const std::string& hello = partner_ == Part::tvService ? tvHello_ : mmHello_;
        impersonate(socketOf(partner_), hello.substr(0, hello.size() / 2) + garbage(partner_, 0));
        exchanging_ = !connection().at("connected").get<bool>();
        return;
    }
    kit_.freeze(Part::frameHost);
    kit_.start(partner_);
    if (situation_.fault == Fault::mute) setFault(partner_, {"mute", "on"});
    kit_.freeze(partner_);
    kit_.thaw(Part::frameHost);
    await([&] { return hasClient(kit_.processId(partner_), socketOf(partner_)); }, "a client's connection");
    exchanging_ = !connection().at("connected").get<bool>();
}

// Requests that queue behind the pending one. Each needs one service, or both.
void FaultInjector::requestOtherTerminals() {
    for (const auto& [terminal, uri] : {std::pair{"1:0", live}, {"3:0", media}, {"4:0", live}})
        queued_.push_back({requestPlay(terminal, uri), terminal, uri});
}

// Whether the fault was injected at the intended moment. Lines logged after the injection are ignored: a framework
// process that is asked to exit may still log.
bool FaultInjector::isExact() {
    const auto logged = [&](const std::string& words, const std::string& reqId, const std::string& after = {}) {
        const receiver::LogLine* const line = log_.about(words, reqId + after);
        return line != nullptr && line->time < injected_;
    };
    switch (situation_.moment) {
        case Moment::beforeStop:
            return logged("finished req_id ", earlier_) && newestReqId() == earlier_;
        case Moment::stopSent:
            return !logged("Receiving req_id ", reqId_,
                           std::string(",ResOperation::WaitingStop,") + answerTextOf(partner_));
        case Moment::stopAnswered:
            return !logged("Sending reqid ", reqId_, ", ResOperation::SendingStart");
        case Moment::startSent:
            return !logged("finished req_id ", reqId_);
        case Moment::answered: // a mute service shows only with the next request
            return situation_.fault == Fault::mute ? !logged("finished req_id ", reqId_)
                                                   : logged("finished req_id ", reqId_);
        case Moment::firstExchange:
            return exchanging_;
    }
    return false;
}

} // namespace killed
