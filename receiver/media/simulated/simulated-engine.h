// An engine without media: every source is shown at once, and every channel has the same streams.
#pragma once

#include "tracks.h"

#include <media/engine.h>
#include <thread-safety/mutex.h>

namespace media {

class SimulatedEngine final : public Engine {
public:
    const char* name() const override { return "simulated"; }
    void shutDown() override {}

    // Calls events.opened before it returns.
    void open(const Terminal& terminal, const Source& source, Events events) override;
    void close(const Terminal& terminal) override;
    void swap(const Terminal& a, const Terminal& b) override;
    std::int32_t choose(const Terminal& terminal, TrackKind kind, std::int32_t number) override;
    Tracks tracks(const Terminal& terminal) const override;
    StreamCounts streamCounts(const Source& channel) const override;
    std::optional<std::int32_t> rating(const Source&) const override { return std::nullopt; }
    tvservice::TvServiceTunerStatusMessage_t tuning(const Terminal& terminal, const Source& channel) const override;
    tvservice::TvServiceTunerResult_t signal(const Terminal& terminal) const override;
    std::vector<std::uint32_t> usedTuners() const override { return {}; } // it has enough of them
    std::string snapshot(const Terminal& terminal) const override;
    Sound sound(const Terminal& terminal) const override;

private:
    mutable thread_safety::Mutex mutex_;
    TrackTable tracks_ TVSA_GUARDED_BY(mutex_);
};

} // namespace media
