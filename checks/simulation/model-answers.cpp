// What the reference makes of answers.
#include "model-texts.h"
#include "model.h"
#include "situations.h"

#include <algorithm>
#include <cstring>

namespace simulation {

int Model::answer(const Event& event) {
    hitIf(reporting_, Situation::AnswerWhileReporting);
    line(Trace, "tvServiceInfo", "Called\n");
    const auto passOn = [&] {
        report(event, event.infos);
        return 0;
    };
    if (event.infos.empty()) {
        hit(Situation::AnswerEmpty);
        line(Trace, "tvServiceInfo", "tvServiceInfo empty return \n");
        return passOn();
    }
    for (const auto& info : event.infos)
        line(Trace, "tvServiceInfo", servicesText(event.from), " Service Info:\nTERMINAL TYPE: ", info.terminal.type,
             "  |  ID: ", info.terminal.id, "\nRESULT:        ", info.result, "\nURI:           '", info.uri,
             "'\nUUID:          '", info.uuid, "'\nUUID_ANCESTOR: '", info.uuidAncestor, "'\n\n");
    const std::string& id = event.infos.front().reqId;
    if (id.empty()) {
        hit(Situation::AnswerWithoutId);
        hitIf(event.infos.size() > 1 && !event.infos[1].reqId.empty(), Situation::AnswerWithoutIdThenId);
        line(Trace, "tvServiceInfo", "tvServiceInfo req_id empty return\n");
        return passOn();
    }
    if (event.from < 1 || event.from > 3) {
        hit(Situation::AnswerOfNobody);
        line(Failure, "tvServiceInfo", "response ", servicesText(event.from), " not corrected  in reqid ", id, "\n");
        return passOn();
    }
    hitIf(droppedAt_ == now && droppedAfterLimit_ == Nanoseconds(1) && lastDropped_ == id,
          Situation::AnswerAboveLimitSecond);
    if (queue_.empty()) {
        hit(Situation::AnswerQueueEmpty);
        line(Trace, "tvServiceInfo", "currently queue empty, not for us\n");
        return passOn();
    }
    if (id != queue_.front()->id) {
        hitUnmatched(id);
        line(Warning, "tvServiceInfo", "red_id ", id, " not found\n");
        return passOn();
    }
    Infos outgoing = event.infos;
    const int result = advance(event, outgoing);
    if (result == 2) report(event, outgoing);
    return result;
}

void Model::hitUnmatched(const std::string& id) {
    const std::string& front = queue_.front()->id;
    const std::size_t common = std::min(front.size(), id.size());
    hitIf(std::memcmp(front.data(), id.data(), common) == 0, Situation::AnswerSimilarId);
    if (std::any_of(queue_.begin(), queue_.end(), [&](const auto& queued) { return queued->id == id; }))
        hit(Situation::AnswerQueuedId);
    else if (dropped_.count(id) != 0)
        hit(Situation::AnswerAfterDrop);
    else if (ended_.count(id) != 0)
        hit(Situation::AnswerAfterEnd);
    else
        hit(Situation::AnswerUnknownId);
}

// An answer to the bundle under way.
int Model::advance(const Event& event, Infos& outgoing) {
    const auto bundle = queue_.front();
    line(Trace, "notifyInfo", "Called\n");
    line(Progress, "notifyInfo", "Receiving req_id ", bundle->id, ",", stepText(*bundle), ",", servicesText(event.from),
         ", all ", awaitedText(*bundle), "\n");
    if (!bundle->sent()) {
        hit(bundle->phase == StopsUnsent ? Situation::AnswerBeforeStops : Situation::AnswerBeforeStarts);
        line(Failure, "notifyInfo", "Wrong response req_id ", bundle->id, ",", stepText(*bundle), ",",
             servicesText(event.from), "\n");
        return -1;
    }
    hitAnswer(*bundle, event.from);
    if (bundle->answered++ == 0) bundle->firstFrom = event.from;
    bundle->awaited -= static_cast<int>(event.from);
    if (bundle->phase == StartsSent)
        bundle->answers.insert(bundle->answers.end(), event.infos.begin(), event.infos.end());
    if (bundle->phase == StopsSent && event.infos.front().result != 0) hit(Situation::StopAnswerFailed);
    if (bundle->awaited != 0) {
        hitIf(bundle->awaited < 0, Situation::AwaitedBelowZero);
        if (bundle->awaited > 0 && bundle->answered == 1)
            hit(bundle->phase == StopsSent ? Situation::StopAnswerFirstOfTwo : Situation::StartAnswerFirstOfTwo);
        return 0;
    }
    hitIf(bundle->answered == 3, Situation::ThreeMmForBoth);
    if (bundle->phase == StopsSent) {
        hit(Situation::StopsAnswered);
        hitIf(sending_ != Sending::None, Situation::AdvancedWhileSent);
        bundle->phase = StartsUnsent;
        bundle->readyAt = now;
        return 1;
    }
    hitIf(sending_ != Sending::None, Situation::EndedWhileSent);
    hitIf(bundle->firstFrom == 1 && event.from == 2, Situation::EndedMmFirst);
    hitIf(bundle->firstFrom == 2 && event.from == 1, Situation::EndedTvFirst);
    outgoing = bundle->answers;
    end(outgoing);
    return 2;
}

void Model::hitAnswer(const Bundle& bundle, std::uint32_t from) {
    const bool mm = !bundle.forMm().empty(), tv = !bundle.forTv().empty();
    hitIf(from == 3, Situation::AnswerOfBoth);
    hitIf((from == 1 && !mm) || (from == 2 && !tv), Situation::AnswerWrongService);
    hitIf(mm && tv && bundle.answered == 1 && bundle.firstFrom == from, Situation::AnswerTwice);
    hitIf(sending_ == Sending::Mm && from == 1, Situation::AnswerWhileMmSent);
    hitIf(sending_ == Sending::Mm && from == 2 && tv, Situation::TvAnswerBeforeSent);
    hitIf(sending_ == Sending::Tv && from == 2, Situation::AnswerWhileTvSent);
    answeredAt_ = now;
    answeredAfterLimit_ = now - bundle.sentAt - limit;
    hitIf(answeredAfterLimit_ == Nanoseconds(0) && keptAt_ == now, Situation::AnswerAtLimitSecond);
}

void Model::end(Infos& outgoing) {
    const auto bundle = queue_.front();
    queue_.pop_front();
    ended_.insert(bundle->id);
    mark(outgoing);
    line(Progress, "notifyInfo", "finished req_id ", bundle->id, "\n");
}

// Terminals for which another start is queued.
void Model::mark(Infos& infos) {
    line(Progress, "verifyResult", "Number of requests waiting for handling ", queue_.size(), "\n");
    std::size_t marked = 0;
    std::vector<const Bundle*> markedBy(infos.size());
    const auto markBy = [&](const Bundle& bundle, const Requests& starts, const char* kind, Situation situation) {
        for (const auto& start : starts)
            for (std::size_t i = 0; i < infos.size(); ++i) {
                auto& info = infos[i];
                if (info.terminal.type != start.terminal.type || info.terminal.id != start.terminal.id) continue;
                line(Progress, nullptr, "A new request in ", kind,
                     " request will soon be handled for terminal[type:", start.terminal.type, " id:", start.terminal.id,
                     "], new URI ", start.uri, "\n");
                hit(situation);
                hitIf(info.result < 0, Situation::NewerResultLost);
                hitIf(markedBy[i] != nullptr && markedBy[i] != &bundle, Situation::NewerTwice);
                marked += markedBy[i] == nullptr ? 1U : 0U;
                markedBy[i] = &bundle;
                info.result = 1;
            }
    };
    for (const auto& bundle : queue_) {
        markBy(*bundle, bundle->mmStarts, "media", Situation::NewerMedia);
        markBy(*bundle, bundle->tvStarts, "livetv", Situation::NewerLive);
    }
    hitIf(marked != 0 && marked < infos.size(), Situation::NewerOther);
}

void Model::report(const Event& event, const Infos& infos) {
    for (int client = 0; client < clients; ++client) {
        noteReport(client, event.ids, event.transport, infos);
        if (client != 0) continue;
        const bool outer = reporting_;
        const Sending sending = sending_;
        reporting_ = true;
        sending_ = Sending::None;
        reach(Place::Reporting);
        reporting_ = outer;
        sending_ = sending;
    }
}

} // namespace simulation
