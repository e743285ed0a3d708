// The TV service: handles all requests of its interface, executes them as far as a service without hardware can, and
// reports the results.
//
// Answers go to the requesting client; notifications of shared state go to all clients. tv-service.cpp documents the
// effects of each request.
#pragma once

#include "tvservice/channel-list.h"
#include "tvservice/downloads.h"
#include "tvservice/service-status.h"
#include "tvservice/tracks.h"

#include <genrpc/arguments.h>
#include <tvservice-adapter/service/answer-line.h>
#include <tvservice-adapter/service/service.h>
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

class TvService : public Service {
public:
    // downloadStep: the time that each step of a download takes.
    TvService(TerminalTable& table, FaultSwitches& faults, const ChannelList& channels,
              std::chrono::milliseconds downloadStep = std::chrono::milliseconds(50))
        : channels_(channels), table_(table), answers_(sender_, faults), downloads_(sender_, downloadStep) {}

    void offer(host::MessageQueue& queue) override;

    std::vector<TableCount> tables() const override {
        return {locks_.count(),
                answers_.delayed(),
                downloads_.count(),
                {"source", sourceBytes_, bounds::passedTextBytes, refusedSources_}};
    }

    // For the emit command. After offer, from any thread.
    const Sender& sender() const { return sender_; }

private:
    TVSERVICE_REQUESTS(TVSERVICE_HANDLER)

    // The notifications to send once a channel is shown.
    struct Tuned {
        tvservice::TvServiceTunerResult_t result;
        tvservice::TvServiceAudioInfo_t audio;
        tvservice::TvServiceSubtitleInfo_t subtitle;
        tvservice::TvServiceVideoInfo_t video;
        tvservice::TvServiceTeletextInfo_t teletext;
    };
    std::int32_t check(const Terminal& terminal, const std::string& uri) const;
    std::vector<Tuned> tune(const std::vector<tvservice::TvServiceInfo_t>& infos);
    void notify(const std::vector<Tuned>& all) const;
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
