// The TV service: takes all requests of its interface, carries them out as far as a service without hardware can, and
// tells what became of them.
//
// Answers go to the client that asked, news of what all clients share go to all of them. What each request leads to,
// and what the fields of the single-number records mean to this service (what others mean is said in tuner.h, tracks.h,
// service-status.h and downloads.h):
//
//   play, stop       to the asker one TvServiceInfo with an answer each (delayed and falsified as the fault switches
//                    say). For each channel that is shown, to all: TvServiceTunerStatusMessage before,
//                    TvServiceTunerResult and the four track infos after it; of a list with more than 64 channels for
//                    the first 64. A play for which there is no room is answered with result::nothingShown
//   swap window      intParam1 is a type: the terminals type:0 and 0:0 swap what they show; TvServiceSwapWinInfo with
//                    that type to all, or with -1 to the asker when one is locked, there is nothing to swap, or
//                    what moves is another one's and the asker has no room for a terminal more
//   stream info      intParam1 is a channel's number; TvServiceStreamInfo with the same number and the channel's URI,
//                    name and numbers of streams, no text for an unknown channel
//   audio, subtitle, video, teletext
//                    the matching info, to all when the track has changed, else to the asker
//   info             TvServiceInfo without request id for every terminal that shows something, and TvServiceStatusInfo
//   ask release      intParam1 is a tuner: TvServiceAskReleaseInfo with it and byte 1 (to be released) to all others,
//                    TvServiceAskReleaseConf with it and byte 1 (granted) to the asker; a negative number is told to
//                    nobody and gets byte 0
//   send key         TvServiceBroadcastApplictionInfo with the number of the broadcast application that took the key, 1
//                    to 4 for the coloured ones, else 0; a captions key also turns captions over, which
//                    TvServiceCcInfoNotify tells to all, 1 on and 0 off
//   list changed     intParam1 numbers the new list; TvServiceStatusInfo to all
//   try run          intParam1 is a channel's number; TvServicePlayInfo with its URI, without one for an unknown
//                    channel
//   parental lock    intParam1 0 unlocks, else locks for the age in intParam2; TvServiceStatusInfo to all, or to the
//                    asker when that has changed nothing or there is no room for another lock. A play on a locked
//                    terminal is answered with result::locked; what it shows already stays
//   MTS audio        0 main, 1 second programme, 2 both; TvServiceMtsAudioTrackInfoNotify to all, or with the unchanged
//                    track to the asker for another number
//   CAS service      TvServiceCiSasMessageInfo with the type and byte 1 (chosen) to all, or byte 0 to the asker for a
//                    negative type
//   packages         a download, see downloads.h
//   source changed   TvServiceNetworkChangeMsg with the source's name, and as byte whether there is one, to all; for
//                    a name longer than bounds::passedTextBytes with the unchanged source to the asker
#pragma once

#include "common/answer-line.h"
#include "tvservice/channel-list.h"
#include "tvservice/downloads.h"
#include "tvservice/service-status.h"
#include "tvservice/tracks.h"

#include <genrpc/arguments.h>
#include <tvservice/messages.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace services {

#define TVSERVICE_HANDLER(service, direction, Name, method, id, ...) \
    void method(std::uint64_t client GENRPC_EACH(GENRPC_PARAMETER, __VA_ARGS__));

class TvService {
public:
    // downloadStep: the time that each step of a download takes.
    TvService(TerminalTable& table, FaultSwitches& faults, const ChannelList& channels,
              std::chrono::milliseconds downloadStep = std::chrono::milliseconds(50))
        : channels_(channels), table_(table), answers_(sender_, faults), downloads_(sender_, downloadStep) {}

    // Must outlive the queue's receiving. Throws std::runtime_error when the endpoint cannot be had.
    void offer(host::MessageQueue& queue);

    // How full the tables are, besides that of the terminals. From any thread.
    std::vector<TableCount> tables() const {
        return {locks_.count(),
                answers_.delayed(),
                downloads_.count(),
                {"source", sourceBytes_, bounds::passedTextBytes, refusedSources_}};
    }

    // For what is sent on command; once offered, from any thread.
    const Sender& sender() const { return sender_; }

private:
    TVSERVICE_REQUESTS(TVSERVICE_HANDLER)

    // What is to be told once a channel is shown.
    struct Tuned {
        tvservice::TvServiceTunerResult_t result;
        tvservice::TvServiceAudioInfo_t audio;
        tvservice::TvServiceSubtitleInfo_t subtitle;
        tvservice::TvServiceVideoInfo_t video;
        tvservice::TvServiceTeletextInfo_t teletext;
    };
    std::int32_t check(const Terminal& terminal, const std::string& uri) const;
    std::vector<Tuned> tune(const std::vector<tvservice::TvServiceInfo_t>& infos);
    void tell(const std::vector<Tuned>& all) const;
    template <class Message, class Request> void chooseTrack(std::uint64_t client, const Request& request);
    bool swapWithMain(const Terminal& terminal, std::uint64_t client);
    tvservice::TvServiceStatusInfo_t status() const;

    const ChannelList& channels_;
    TerminalTable& table_;
    Sender sender_;
    AnswerLine<tvservice::messages::TvServiceInfo> answers_;
    Downloads downloads_;

    Locks locks_;
    std::atomic<std::size_t> sourceBytes_ = 0;
    std::atomic<std::uint64_t> refusedSources_ = 0;
    // Used on the receiving thread only.
    Tracks tracks_;
    std::string source_;
    std::int32_t listNumber_ = 0;
    bool captions_ = false;
    tvservice::MtsAudioTrack_t mtsTrack_{};
};

#undef TVSERVICE_HANDLER

} // namespace services
