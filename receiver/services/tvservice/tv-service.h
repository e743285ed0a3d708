// The TV service: handles all requests of its interface, executes them as far as a service without hardware can, and
// reports the results.
//
// Answers go to the requesting client; notifications of shared state go to all clients. tv-service.cpp documents the
// effects of each request.
#pragma once

#include "tvservice/channel-list.h"
#include "tvservice/downloads.h"
#include "tvservice/service-status.h"

#include <genrpc/arguments.h>
#include <tvservice-adapter/service/service.h>
#include <tvservice/messages.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <media/plays.h>
#include <string>
#include <vector>

namespace services {

#define TVSERVICE_HANDLER(service, direction, Name, method, id, ...) \
    void method(std::uint64_t client GENRPC_EACH(GENRPC_PARAMETER, __VA_ARGS__));

class TvService : public Service {
public:
    // downloadStep: the time that each step of a download takes.
    TvService(TerminalTable& table, FaultSwitches& faults, const ChannelList& channels, media::Engine& engine,
              std::chrono::milliseconds downloadStep = std::chrono::milliseconds(50))
        : channels_(channels),
          table_(table),
          engine_(engine),
          plays_(table, faults, sender_, engine),
          downloads_(sender_, downloadStep) {}

    void offer(host::MessageQueue& queue) override;

    std::vector<TableCount> tables() const override {
        return {locks_.count(),
                plays_.delayed(),
                downloads_.count(),
                {"source", sourceBytes_, bounds::passedTextBytes, refusedSources_}};
    }

    // For the emit command. After offer, from any thread.
    const Sender& sender() const { return sender_; }

private:
    TVSERVICE_REQUESTS(TVSERVICE_HANDLER)

    using Plays = media::Plays<tvservice::messages::TvServiceInfo>;
    // The notifications to send once a channel is shown.
    struct Tuned {
        tvservice::TvServiceTunerResult_t result;
        media::Tracks tracks;
    };
    std::int32_t check(const Terminal& terminal, const std::string& uri) const;
    bool isLockedFor(const Terminal& terminal, const std::string& uri) const;
    media::Source sourceOf(const std::string& uri) const;
    template <class Take> void eachChannel(const Plays::Infos& infos, const Take& take) const;
    void notifyTuning(const Plays::Infos& infos) const;
    Plays::Afterwards notifyTuned(const Plays::Infos& infos) const;
    void notifyTracks(const media::Tracks& tracks) const;
    void notifyConflict() const;
    template <class Message, class Request>
    void chooseTrack(std::uint64_t client, media::TrackKind kind, const Request& request);
    bool swapWithMain(const Terminal& terminal, std::uint64_t client);
    tvservice::TvServiceStatusInfo_t status() const;

    const ChannelList& channels_;
    TerminalTable& table_;
    media::Engine& engine_;
    Sender sender_;
    Plays plays_;
    Downloads downloads_;

    Locks locks_;
    std::atomic<std::size_t> sourceBytes_ = 0;
    std::atomic<std::uint64_t> refusedSources_ = 0;
    // Used on the receiving thread only.
    std::string source_;
    std::int32_t listNumber_ = 0;
    bool captions_ = false;
    tvservice::MtsAudioTrack_t mtsTrack_{};
};

#undef TVSERVICE_HANDLER

} // namespace services
