// The engine on GStreamer.
#pragma once

#include "playback.h"

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace media {

// It shows at most mostShown sources at a time, each with a decoder and buffers of its own: a play of one more is
// refused with result::noRoom. Channels of one transport stream share a tuner; without a free tuner, a play is refused
// with result::noTuner. One thread of its own opens, closes and watches all pipelines; GStreamer's threads carry the
// data.
class GStreamerEngine final : public Engine {
public:
    static constexpr std::size_t mostShown = 16;

    GStreamerEngine(); // as the settings media.output, media.sound and media.tuners say
    ~GStreamerEngine() override;

    const char* name() const override { return "gstreamer"; }
    void shutDown() override;

    void open(const Terminal& terminal, const Source& source, Events events) override;
    void close(const Terminal& terminal) override;
    void swap(const Terminal& a, const Terminal& b) override;
    std::int32_t choose(const Terminal& terminal, TrackKind kind, std::int32_t number) override;
    Tracks tracks(const Terminal& terminal) const override;
    std::string problemOf(const std::string& transport) const override { return media::problemOf(transport); }
    StreamCounts streamCounts(const Source& channel) const override;
    std::optional<std::int32_t> rating(const Source& channel) const override;
    tvservice::TvServiceTunerStatusMessage_t tuning(const Terminal& terminal, const Source& channel) const override;
    tvservice::TvServiceTunerResult_t signal(const Terminal& terminal) const override;
    std::vector<std::uint32_t> usedTuners() const override;
    std::string snapshot(const Terminal& terminal) const override;
    Sound sound(const Terminal& terminal) const override;

private:
    // What a terminal shows, or is about to show.
    struct Shown {
        Source source;
        Events events; // opened: empty once it has been called
        std::unique_ptr<Playback> playback;
        Owner<GSource> limit; // ends what takes too long to open
    };

    void start();
    // Runs a function on the engine's thread, later or (call) before it returns.
    void post(std::function<void()> work) const;
    template <class Work> auto call(Work work) const;
    void runOnce(GSource* source, std::function<void()> work) const;

    // On the engine's thread.
    void begin(const Terminal& terminal, const Source& source, Events events);
    void end(const Terminal& terminal);
    void opened(std::uint64_t number);
    void over(std::uint64_t number, const Outcome& outcome);
    void report(std::uint64_t number, std::function<void()> Events::*event);
    std::shared_ptr<Multiplex> multiplexOf(const Source& source);
    std::optional<std::uint32_t> tunerOf(const std::string& transport) const;
    Program programOf(const Source& channel) const;
    static gboolean releaseUnused(void* self);
    Playback* find(const Terminal& terminal) const;

    GMainContext* const context_;
    GMainLoop* const loop_;
    // Used on the engine's thread only. At most mostShown. The number is different for
    // each source that was opened: what happens late to a former one is ignored.
    std::map<std::uint64_t, Shown> shown_;
    std::map<Terminal, std::uint64_t> numbers_;
    std::uint64_t lastNumber_ = 0;
    std::uint64_t trimmed_ = 0; // the last number when freed memory was last given back to the system
    struct Tuner {
        std::string transport;
        std::weak_ptr<Multiplex> multiplex; // which receives it, while anything uses it
    };
    std::vector<Tuner> tuners_; // as many as there are
    // The newest one, also when nothing shows it: a zap inside it, which stops the old channel first, keeps the input.
    std::shared_ptr<Multiplex> lingering_;
    bool hasLingered_ = false;
    std::unique_ptr<Screen> screen_;
    Owner<GSource> release_; // calls releaseUnused while there is a screen
    std::thread thread_;
};

} // namespace media
