#include "model.h"

#include "model-texts.h"
#include "situations.h"
#include "uris.h"

#include <algorithm>

namespace simulation {
namespace {

const std::string stopUri = "rec://plain/null";

bool same(const tvservice::TvServiceTerminal_t& a, const tvservice::TvServiceTerminal_t& b) {
    return a.type == b.type && a.id == b.id;
}

tvservice::TvServiceReq_t stopOf(tvservice::TvServiceReq_t request) {
    request.uri = stopUri;
    return request;
}

// In the MM service's own records, which have no place for the first and fourth text and the fourth number.
MmRequests forMmService(const Requests& requests) {
    MmRequests made;
    for (const auto& request : requests) {
        auto& record = made.emplace_back();
        record.terminal.type = request.terminal.type;
        record.terminal.id = request.terminal.id;
        record.intParam1 = request.intParam1;
        record.intParam2 = request.intParam2;
        record.intParam3 = request.intParam3;
        record.uri = request.uri;
        record.uuid = request.uuid;
        record.strParam2 = request.strParam2;
        record.strParamList = request.strParamList;
        record.reqId = request.reqId;
        record.strParam3 = request.strParam3;
    }
    return made;
}

int awaitedOf(const Requests& mm, const Requests& tv) { return (mm.empty() ? 0 : 1) + (tv.empty() ? 0 : 2); }

} // namespace

// ---- what clients ask for ----

int Model::request(const Event& event) {
    hitIf(sending_ == Sending::Mm, Situation::RequestWhileMmSent);
    hitIf(sending_ == Sending::Tv, Situation::RequestWhileTvSent);
    hitIf(reporting_, Situation::RequestWhileReporting);
    line(Trace, "tvServiceReq", "Called\n");
    if (event.requests.empty()) {
        hit(Situation::RequestsNone);
        return 0;
    }
    const auto bundle = std::make_shared<Bundle>();
    for (const auto& request : event.requests) {
        line(Trace, "tvServiceReq", "Tv Service Req:\nTERMINAL TYPE: ", request.terminal.type,
             "  |  ID: ", request.terminal.id, "\nURI:           '", request.uri, "'\nUUID:          '", request.uuid,
             "'\n");
        sort(request, *bundle);
    }
    bool numbered = false;
    bundle->id = idFor(event.requests, numbered);
    line(Progress, "tvServiceReq", "PFM-POWER2:new reqid ", bundle->id, " created\n");
    for (Requests* list : {&bundle->mmStops, &bundle->tvStops, &bundle->mmStarts, &bundle->tvStarts})
        for (auto& request : *list) request.reqId = bundle->id;
    believe(*bundle);
    line(Progress, "tvServiceReq", "Req size for new reqid ", bundle->id, ": pStop ", bundle->mmStops.size(),
         ", pTvStop ", bundle->tvStops.size(), ", pMM ", bundle->mmStarts.size(), ", pTV ", bundle->tvStarts.size(),
         " \n");
    line(Trace, "tvServiceReq", "dump the requests detail pstop size ", bundle->mmStops.size(), ", pMM size ",
         bundle->mmStarts.size(), ", pTV size ", bundle->tvStarts.size(), "\n");
    const bool stops = !bundle->mmStops.empty() || !bundle->tvStops.empty();
    bundle->phase = stops ? StopsUnsent : StartsUnsent;
    bundle->readyAt = now;
    hitRequests(*bundle, numbered);
    queue_.push_back(bundle);
    hitIf(queue_.size() >= 4, Situation::QueuedFour);
    return 0;
}

void Model::sort(const tvservice::TvServiceReq_t& request, Bundle& bundle) {
    const auto plays = std::count_if(playing_.begin(), playing_.end(),
                                     [&](const auto& terminal) { return same(terminal, request.terminal); });
    const auto forgotten = std::any_of(forgotten_.begin(), forgotten_.end(),
                                       [&](const auto& terminal) { return same(terminal, request.terminal); });
    Source source = sourceOf(request.uri);
    if (source == Source::Stop && request.terminal.type == 5) {
        hit(Situation::StopOfType5);
        source = Source::Live;
    }
    switch (source) {
        case Source::Stop:
            hit(Situation::Stop);
            if (plays != 0) forgotten_.push_back(request.terminal);
            bundle.mmStops.push_back(request);
            bundle.tvStops.push_back(request);
            bundle.tvStarts.push_back(request);
            break;
        case Source::Recording:
            hit(Situation::Recording);
            line(Progress, nullptr, "hdrplayback service url ", request.uri, "\n");
            bundle.tvStarts.push_back(request);
            bundle.mmStops.push_back(stopOf(request));
            break;
        case Source::CachedRecording:
        case Source::File:
            hit(source == Source::File ? Situation::File : Situation::CachedRecording);
            line(Progress, nullptr, "media service  url ", request.uri, "\n");
            [[fallthrough]];
        case Source::Network:
            hitIf(source == Source::Network, Situation::Network);
            hitIf(plays != 0, Situation::MmReplacesMm);
            bundle.mmStarts.push_back(request);
            bundle.mmStops.push_back(stopOf(request));
            bundle.tvStops.push_back(stopOf(request));
            break;
        case Source::Live:
        case Source::LiveWithStopInside:
            hit(plays == 0 ? Situation::LiveFromLive : plays == 1 ? Situation::LiveFromMm : Situation::LiveFromMmTwice);
            hitIf(plays == 0 && forgotten, Situation::LiveAfterStop);
            bundle.tvStarts.push_back(request);
            bundle.mmStops.insert(bundle.mmStops.end(), static_cast<std::size_t>(plays), stopOf(request));
            break;
    }
}

std::string Model::idFor(const Requests& requests, bool& made) {
    made = requests.front().reqId.empty();
    if (!made) return requests.front().reqId;
    hitIf(nextNumber_ == UINT32_MAX, Situation::NumberWraps);
    std::string id = std::to_string(nextNumber_++);
    numbers_.insert(id);
    return id;
}

void Model::believe(const Bundle& bundle) {
    for (const Requests* list : {&bundle.mmStops, &bundle.mmStarts})
        for (const auto& request : *list)
            std::erase_if(playing_, [&](const auto& terminal) { return same(terminal, request.terminal); });
    for (const auto& request : bundle.mmStarts) playing_.push_back(request.terminal);
}

void Model::hitRequests(const Bundle& bundle, bool numbered) {
    const bool mm = !bundle.mmStarts.empty(), tv = !bundle.tvStarts.empty();
    hitIf(mm && tv, Situation::RequestsBothServices);
    Requests starts = bundle.mmStarts;
    starts.insert(starts.end(), bundle.tvStarts.begin(), bundle.tvStarts.end());
    hitIf(starts.size() > 1, Situation::RequestsSeveral);
    for (std::size_t i = 1; i < starts.size(); ++i)
        if (std::any_of(starts.begin(), starts.begin() + static_cast<std::ptrdiff_t>(i),
                        [&](const auto& other) { return same(other.terminal, starts[i].terminal); })) {
            hit(Situation::RequestsTerminalTwice);
            break;
        }
    hitIf(!queue_.empty() && queue_.front()->sent(), Situation::QueuedBehindWaiting);
    if (numbered) return;
    hit(Situation::ClientId);
    hitIf(numbers_.count(bundle.id) != 0, Situation::ClientIdNumber);
    hitIf(std::any_of(queue_.begin(), queue_.end(), [&](const auto& queued) { return queued->id == bundle.id; }),
          Situation::ClientIdQueued);
}

// ---- the worker ----

void Model::work() {
    while (nothingToSend()) {
        const bool queued = !queue_.empty();
        const std::size_t before = trace.size();
        if (waitASecond()) {
            hitIf(queue_.empty(), queued ? Situation::TickQueueEmptied : Situation::TickIdle);
            supervise();
            return;
        }
        hitIf(trace.size() == before, Situation::WokenForNothing);
        hitIf(!nothingToSend(), Situation::WokenToSend);
        hitIf(nothingToSend() && !queue_.empty() && now > queue_.front()->sentAt + limit, Situation::WokenOverdue);
    }
    send();
}

void Model::send() {
    const auto bundle = queue_.front(); // what happens meanwhile may take it off the queue
    line(Progress, "ResMTask", "Sending reqid ", bundle->id, ", ", stepText(*bundle), ", ", servicesText(0), "\n");
    hitSending(*bundle);
    const Requests mm = bundle->forMm(), tv = bundle->forTv();
    bundle->phase = bundle->phase == StopsUnsent ? StopsSent : StartsSent;
    bundle->awaited = awaitedOf(mm, tv);
    bundle->answered = 0;
    bundle->sentAt = now;
    if (!mm.empty()) {
        line(Trace, "ReqMM", "Called\n");
        noteSending("MM", {}, {}, forMmService(mm));
        sending_ = Sending::Mm;
        reach(Place::MmSending);
        sending_ = Sending::None;
        hitIf(!tv.empty() && (queue_.empty() || queue_.front() != bundle), Situation::EndedBeforeTvSent);
    }
    if (!tv.empty()) {
        line(Trace, "ReqTV", "Called\n");
        noteSending("TV", {}, {}, tv);
        sending_ = Sending::Tv;
        reach(Place::TvSending);
        sending_ = Sending::None;
    }
    hitIf(now > bundle->sentAt, Situation::TimePassesWhileSent);
}

void Model::hitSending(const Bundle& bundle) {
    const bool mm = !bundle.forMm().empty(), tv = !bundle.forTv().empty();
    if (bundle.phase == StopsUnsent)
        hit(tv ? Situation::StopsToBoth : Situation::StopsToMm);
    else
        hit(mm && tv ? Situation::StartsToBoth : mm ? Situation::StartsToMm : Situation::StartsToTv);
    hitIf(now > bundle.readyAt + limit, Situation::SendingStepOld);
    hitIf(justDropped_, Situation::SentAfterDrop);
    justDropped_ = false;
}

// ---- the supervision ----

void Model::supervise() {
    line(Trace, "timeoutCheck", "Called \n");
    hitIf(answeredAt_ == now && answeredAfterLimit_ == Nanoseconds(0), Situation::AnswerAtLimitFirst);
    hitIf(answeredAt_ == now && answeredAfterLimit_ == Nanoseconds(1), Situation::AnswerAboveLimitFirst);
    if (queue_.empty()) return;
    const auto bundle = queue_.front();
    if (!bundle->sent()) {
        hit(Situation::TickAtSending);
        return;
    }
    const Nanoseconds over = now - bundle->sentAt - limit;
    if (over <= Nanoseconds(0)) {
        hitIf(over == Nanoseconds(-1), Situation::KeptBelow);
        hitIf(over == Nanoseconds(0), Situation::KeptAtLimit);
        keptAt_ = now;
        line(Trace, "timeoutCheck", "currently reqid ", bundle->id, ",", stepText(*bundle), ",", awaitedText(*bundle),
             "\n");
        return;
    }
    hitIf(over == Nanoseconds(1), Situation::DroppedAbove);
    hit(bundle->phase == StopsSent ? Situation::DroppedAtStops : Situation::DroppedAtStarts);
    hitIf(bundle->answered == 1 && bundle->awaited > 0, Situation::DroppedHalfAnswered);
    hitIf(bundle->awaited < 0, Situation::DroppedOverAnswered);
    line(Warning, "timeoutCheck", "Found reqid ", bundle->id, ",", stepText(*bundle), ",", awaitedText(*bundle),
         " timeout 5s, erase it\n");
    record(*bundle);
    queue_.pop_front();
    dropped_.insert(bundle->id);
    droppedAt_ = now;
    droppedAfterLimit_ = over;
    lastDropped_ = bundle->id;
    justDropped_ = true;
}

// Only the live picture of the main terminal is worth a record.
void Model::record(const Bundle& dropped) {
    hitIf(dropped.tvStarts.empty(), Situation::NoRecordMmOnly);
    for (std::size_t i = 0; i < dropped.tvStarts.size(); ++i) {
        const auto& start = dropped.tvStarts[i];
        if (start.terminal.type != 0 || start.terminal.id != 0) {
            hit(Situation::NoRecordTerminal);
            continue;
        }
        const Source source = sourceOf(start.uri);
        if (source == Source::Stop || source == Source::LiveWithStopInside) {
            hit(source == Source::Stop ? Situation::NoRecordStop : Situation::NoRecordStopInside);
            continue;
        }
        hit(i == 0 ? Situation::RecordFirst : Situation::RecordLater);
        line(Warning, "timeoutCheck", "writeTvRunLog switch channel failed, reason: timeout for response of ",
             stepText(dropped), " \n");
        noteRecord({"004001", utcTime(), "00400109", 4, 9301,
                    std::string("Waiting for response of ") + stepText(dropped) + ", " + awaitedText(dropped) +
                        ", Uri: " + start.uri});
        return;
    }
}

std::string Model::queueText() const {
    std::string text;
    for (const auto& bundle : queue_) {
        text += bundle->id + ":";
        for (int phase = bundle->phase; phase <= StartsSent; ++phase) {
            const bool sent = phase == StopsSent || phase == StartsSent;
            const int whole = phase == StopsSent ? awaitedOf(bundle->mmStops, bundle->tvStops)
                                                 : awaitedOf(bundle->mmStarts, bundle->tvStarts);
            const int awaited = !sent ? 0 : phase == bundle->phase ? bundle->awaited : whole;
            text += std::string(" ") + stepText(static_cast<Phase>(phase), sent) + "/" + servicesText(awaited);
        }
        text += "\n";
    }
    return text;
}

} // namespace simulation
