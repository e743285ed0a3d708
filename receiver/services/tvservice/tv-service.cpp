// The effects of each request; tvservice/meanings.h has the meanings of all fields. "To all": to all clients. "To the
// client": to the one that sent the request.
//
//   play, stop       One TvServiceInfo with all answers to the client, delayed and falsified as the fault switches
//                    demand. For each channel that is shown, to all: TvServiceTunerStatusMessage before the answers,
//                    TvServiceTunerResult and the four track infos after them; the latter again whenever they change.
//                    Of a list with more than 64 channels, only the first 64 are reported. A play without room is
//                    answered with result::noRoom; one without a tuner with result::noTuner, and
//                    TvServiceConflictInfo tells all which tuners are in use.
//   swap window      TvServiceSwapWinInfo to all, or to the client when one terminal is locked, there is nothing to
//                    swap, or the entry that moves is another client's and the client has no room for one more
//                    terminal.
//   stream info      TvServiceStreamInfo to the client.
//   audio, subtitle, video, teletext
//                    The matching info, to all when the track has changed, else to the client.
//   info             TvServiceInfo without request id for every terminal that shows something, and TvServiceStatusInfo.
//   ask release      TvServiceAskReleaseInfo to all other clients, TvServiceAskReleaseConf to the client. A negative
//                    number is not forwarded.
//   send key         TvServiceBroadcastApplictionInfo to the client. A captions key also toggles captions, which
//                    TvServiceCcInfoNotify reports to all.
//   list changed     TvServiceStatusInfo to all.
//   try run          TvServicePlayInfo to the client.
//   parental lock    TvServiceStatusInfo to all, or to the client when nothing has changed or there is no room for
//                    another lock. A play on a locked terminal is answered with result::locked, and the terminal
//                    keeps what it shows, unless the broadcast says that viewers of the lock's age may see it.
//   MTS audio        TvServiceMtsAudioTrackInfoNotify to all, or with the unchanged track to the client for an unknown
//                    number.
//   CAS service      TvServiceCiSasMessageInfo to all, or to the client for a negative type.
//   packages         A download, see downloads.h.
//   source changed   TvServiceNetworkChangeMsg to all. For a name longer than bounds::passedTextBytes, with the
//                    unchanged source to the client.
#include "tvservice/tv-service.h"

#include "tvservice/uri-check.h"

#include <ov/uri.h>
#include <tvservice-adapter/service/handlers.h>
#include <tvservice-adapter/service/log.h>
#include <tvservice/values.h>

#include <algorithm>
#include <cstddef>
#include <tuple>
#include <utility>

namespace services {

namespace messages = tvservice::messages;

namespace {

// The number of channels in a list of requests that clients are notified of. A client's queue is bounded, and the
// notifications must leave room for the answers after them.
constexpr std::size_t mostNotified = 64;
// The approximate memory of the notifications of a channel, most of it descriptions of streams.
constexpr std::size_t tunedBytes = 4096;

Terminal terminalOf(const tvservice::TvServiceTerminal_t& terminal) { return {terminal.type, terminal.id}; }

} // namespace

#define TVSERVICE_BIND(service, direction, Name, method, ...) bind<messages::Name, &TvService::method>(offered, *this);

void TvService::offer(host::MessageQueue& queue) {
    auto& offered = sender_.offer(queue, tvservice::serviceName, tvservice::messageSet());
    TVSERVICE_REQUESTS(TVSERVICE_BIND)
}

#undef TVSERVICE_BIND

// ---- play and stop ----

std::int32_t TvService::check(const Terminal& terminal, const std::string& uri) const {
    return isLockedFor(terminal, uri) ? result::locked : checkTvUri(channels_, uri);
}

// What is not known to be for everyone below the lock's age is not shown.
bool TvService::isLockedFor(const Terminal& terminal, const std::string& uri) const {
    const auto held = locks_.all().find(terminal);
    if (held == locks_.all().end()) return false;
    const auto rating = engine_.rating(sourceOf(uri));
    return !rating || *rating >= held->second.entry.rating;
}

media::Source TvService::sourceOf(const std::string& uri) const {
    const auto channel = channels_.all().find(uri);
    if (channel != channels_.all().end()) return {uri, true, channel->second.transport, channel->second.program};
    namespace Scheme = ov::orveltools::uri::Scheme;
    const std::string scheme = ov::orveltools::uri::LtUri(uri).getScheme();
    return {.uri = uri, .isRecording = scheme == Scheme::File || scheme == Scheme::Fsl2};
}

void TvService::tvServiceReq(std::uint64_t client, const std::vector<tvservice::TvServiceReq_t>& requests) {
    plays_.execute(requests, client,
                   {.check = [this](const Terminal& terminal, const std::string& uri) { return check(terminal, uri); },
                    .source = [this](const std::string& uri) { return sourceOf(uri); },
                    .begun = [this](const Plays::Infos& infos) { notifyTuning(infos); },
                    .tracksChanged = [this](const Terminal& terminal) { notifyTracks(engine_.tracks(terminal)); },
                    .signalChanged =
                        [this](const Terminal& terminal) {
                            sender_.toAll<messages::TvServiceTunerResult>(engine_.signal(terminal));
                        },
                    .afterwards = [this](const Plays::Infos& infos) { return notifyTuned(infos); }});
}

// Calls take for the channels among what is shown; for the first mostNotified ones only.
template <class Take> void TvService::eachChannel(const Plays::Infos& infos, const Take& take) const {
    std::size_t notified = 0;
    for (const auto& info : infos) {
        if (info.result != result::done || !channels_.has(info.uri)) continue;
        if (++notified > mostNotified) break;
        take(terminalOf(info.terminal), info.uri);
    }
}

void TvService::notifyTuning(const Plays::Infos& infos) const {
    eachChannel(infos, [this](const Terminal& terminal, const std::string& uri) {
        sender_.toAll<messages::TvServiceTunerStatusMessage>(engine_.tuning(terminal, sourceOf(uri)));
    });
}

TvService::Plays::Afterwards TvService::notifyTuned(const Plays::Infos& infos) const {
    std::vector<Tuned> all;
    eachChannel(infos, [&](const Terminal& terminal, const std::string&) {
        all.push_back({engine_.signal(terminal), engine_.tracks(terminal)});
    });
    const std::size_t bytes = all.size() * tunedBytes;
    const bool conflict =
        std::any_of(infos.begin(), infos.end(), [](const auto& info) { return info.result == result::noTuner; });
    return {[this, all = std::move(all), conflict] {
                for (const auto& [result, tracks] : all) {
                    sender_.toAll<messages::TvServiceTunerResult>(result);
                    notifyTracks(tracks);
                }
                if (conflict) notifyConflict();
            },
            bytes};
}

void TvService::notifyTracks(const media::Tracks& tracks) const {
    sender_.toAll<messages::TvServiceAudioInfo>(tracks.audio);
    sender_.toAll<messages::TvServiceSubtitleInfo>(tracks.subtitle);
    sender_.toAll<messages::TvServiceVideoInfo>(tracks.video);
    sender_.toAll<messages::TvServiceTeletextInfo>(tracks.teletext);
}

// Each of the tuners would do. None is taken from a terminal: that is for the clients to decide.
void TvService::notifyConflict() const {
    const std::vector<std::uint32_t> tuners = engine_.usedTuners();
    sender_.toAll<messages::TvServiceConflictInfo>(tvservice::TvServiceConflictInfo_t{tuners, tuners, 0});
}

// ---- terminals ----

bool TvService::swapWithMain(const Terminal& terminal, std::uint64_t client) {
    const Terminal main{tvservice::terminalType::main, 0};
    if (terminal == main || locks_.contains(main) || locks_.contains(terminal)) return false;
    if (!table_.swap(main, terminal, client)) return false;
    engine_.swap(main, terminal);
    return true;
}

void TvService::tvServiceSwapWinReq(std::uint64_t client, const tvservice::TvServiceSwapWinReq_t& request) {
    if (swapWithMain({request.intParam1, 0}, client))
        sender_.toAll<messages::TvServiceSwapWinInfo>(tvservice::TvServiceSwapWinInfo_t{request.intParam1});
    else
        sender_.to<messages::TvServiceSwapWinInfo>(client,
                                                   tvservice::TvServiceSwapWinInfo_t{tvservice::terminalType::none});
}

tvservice::TvServiceStatusInfo_t TvService::status() const {
    return statusOf(table_.entries(), locks_, channels_, listNumber_);
}

void TvService::tvServiceInfoReq(std::uint64_t client) {
    std::vector<tvservice::TvServiceInfo_t> infos;
    for (const auto& [terminal, shown] : table_.entries())
        infos.push_back({{terminal.type, terminal.id}, result::done, shown.uri, shown.uuid, "", ""});
    sender_.to<messages::TvServiceInfo>(client, infos);
    sender_.to<messages::TvServiceStatusInfo>(client, status());
}

void TvService::setParentalLockInfo(std::uint64_t client, const tvservice::TvServiceParentalLockInfo_t& info) {
    const Terminal terminal = terminalOf(info.terminal);
    Evictions evictions([this] { return sender_.clients(); });
    const Locks::Outcome outcome = info.intParam1 != tvservice::lockState::unlocked
                                       ? locks_.lock(terminal, info.intParam2, client, &evictions)
                                       : locks_.unlock(terminal);
    if (outcome == Locks::Outcome::changed)
        sender_.toAll<messages::TvServiceStatusInfo>(status());
    else
        sender_.to<messages::TvServiceStatusInfo>(client, status());
}

// ---- tracks and streams ----

template <class Message, class Request>
void TvService::chooseTrack(std::uint64_t client, media::TrackKind kind, const Request& request) {
    const Terminal terminal = terminalOf(request.terminal);
    const std::int32_t result = engine_.choose(terminal, kind, request.intParam1);
    media::Tracks tracks = engine_.tracks(terminal);
    auto& info = std::get<std::tuple_element_t<0, typename Message::Body::Arguments>&>(
        std::tie(tracks.audio, tracks.subtitle, tracks.video, tracks.teletext));
    info.intParam2 = result;
    if constexpr (requires { info.intParam3; }) info.intParam3 = request.intParam2;
    if (result == result::done)
        sender_.toAll<Message>(info);
    else
        sender_.to<Message>(client, info);
}

void TvService::tvServiceAudioReq(std::uint64_t client, const tvservice::TvServiceAudioReq_t& request) {
    chooseTrack<messages::TvServiceAudioInfo>(client, media::TrackKind::audio, request);
}

void TvService::tvServiceSubtitleReq(std::uint64_t client, const tvservice::TvServiceSubtitleReq_t& request) {
    chooseTrack<messages::TvServiceSubtitleInfo>(client, media::TrackKind::subtitle, request);
}

void TvService::tvServiceVideoReq(std::uint64_t client, const tvservice::TvServiceVideoReq_t& request) {
    chooseTrack<messages::TvServiceVideoInfo>(client, media::TrackKind::video, request);
}

void TvService::tvServiceTeletextReq(std::uint64_t client, const tvservice::TvServiceTeletextReq_t& request) {
    chooseTrack<messages::TvServiceTeletextInfo>(client, media::TrackKind::teletext, request);
}

void TvService::tvServiceStreamInfoReq(std::uint64_t client, const tvservice::TvServiceStreamInfoReq_t& request) {
    tvservice::TvServiceStreamInfo_t info{request.intParam1, channels_.uriOf(request.intParam1)};
    if (std::string& text = info.strParam1; !text.empty()) {
        const std::string uri = text;
        const auto add = [&](std::size_t count, const char* kind) { text += ", " + std::to_string(count) + kind; };
        text += ' ' + channels_.all().at(uri).name;
        if (const auto counts = engine_.streamCounts(sourceOf(uri)); counts.known) {
            add(counts.video, " video");
            add(counts.audio, " audio");
            add(counts.subtitle, " subtitle");
            add(counts.teletext, " teletext");
        }
    }
    sender_.to<messages::TvServiceStreamInfo>(client, info);
}

void TvService::mtsAudioChangeReq(std::uint64_t client, tvservice::MtsAudioTrack_t track) {
    if (!find(tvservice::mtsTracks, track)) {
        sender_.to<messages::TvServiceMtsAudioTrackInfoNotify>(client, mtsTrack_);
        return;
    }
    mtsTrack_ = track;
    sender_.toAll<messages::TvServiceMtsAudioTrackInfoNotify>(track);
}

// ---- the rest ----

void TvService::tvServiceAskReleaseReq(std::uint64_t client, const tvservice::TvServiceAskReleaseReq_t& request) {
    namespace releaseAnswer = tvservice::releaseAnswer;
    const std::uint8_t answer = request.intParam1 >= 0 ? releaseAnswer::granted : releaseAnswer::refused;
    if (answer == releaseAnswer::granted)
        sender_.toAllExcept<messages::TvServiceAskReleaseInfo>(
            client, tvservice::TvServiceAskReleaseInfo_t{request.intParam1, tvservice::releaseDemand::wanted});
    sender_.to<messages::TvServiceAskReleaseConf>(client,
                                                  tvservice::TvServiceAskReleaseConf_t{request.intParam1, answer});
}

void TvService::tvServiceSendKeyReq(std::uint64_t client, const std::string& key) {
    namespace application = tvservice::broadcastApplication;
    constexpr std::pair<const char*, std::uint32_t> coloured[] = {{"RED", application::red},
                                                                  {"GREEN", application::green},
                                                                  {"YELLOW", application::yellow},
                                                                  {"BLUE", application::blue}};
    std::uint32_t taker = application::none;
    for (const auto& [known, number] : coloured)
        if (key == known) taker = number;
    sender_.to<messages::TvServiceBroadcastApplictionInfo>(client, taker);
    if (key != "CC" && key != "CAPTIONS") return;
    captions_ = !captions_;
    sender_.toAll<messages::TvServiceCcInfoNotify>(
        tvservice::TvServiceCcInfo_t{captions_ ? tvservice::captionState::on : tvservice::captionState::off});
}

void TvService::tvServiceSListChangedInd(std::uint64_t, const tvservice::TvServiceSListChangedInd_t& indication) {
    listNumber_ = indication.intParam1;
    sender_.toAll<messages::TvServiceStatusInfo>(status());
}

void TvService::tvServiceTryRunReq(std::uint64_t client, const tvservice::TvServiceTryRunRequestParams_t& params) {
    sender_.to<messages::TvServicePlayInfo>(client, tvservice::TvServicePlayInfo_t{channels_.uriOf(params.intParam1)});
}

void TvService::setCasService(std::uint64_t client, tvservice::TvServiceCasServiceType_t type) {
    namespace casChoice = tvservice::casChoice;
    if (type >= 0)
        sender_.toAll<messages::TvServiceCiSasMessageInfo>(
            tvservice::TvServiceCiCasMessageInfo_t{type, casChoice::chosen});
    else
        sender_.to<messages::TvServiceCiSasMessageInfo>(
            client, tvservice::TvServiceCiCasMessageInfo_t{type, casChoice::refused});
}

void TvService::requestPackagesReq(std::uint64_t client, tvservice::reqeustOadType_t type,
                                   const std::string& packages) {
    downloads_.request(client, type, packages);
}

void TvService::tvServiceSourceChanged(std::uint64_t client, const std::string& source) {
    const auto message = [this] {
        namespace sourceState = tvservice::sourceState;
        return tvservice::TvServiceNetworkChangeMessage_t{
            source_.empty() ? std::uint8_t{sourceState::none} : std::uint8_t{sourceState::present}, source_};
    };
    if (source.size() > bounds::passedTextBytes) {
        ++refusedSources_;
        SERVICE_LOG(vdlDebugWarning, "the source is unchanged: a name of %zu bytes is too long\n", source.size());
        sender_.to<messages::TvServiceNetworkChangeMsg>(client, message());
        return;
    }
    source_ = source;
    sourceBytes_ = source.size();
    sender_.toAll<messages::TvServiceNetworkChangeMsg>(message());
}

} // namespace services
