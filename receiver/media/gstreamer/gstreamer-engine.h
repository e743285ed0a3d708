// The engine on GStreamer.
#pragma once

#include "playback.h"

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <thread>

namespace media {

// It shows at most mostShown sources at a time, each with a decoder and buffers of its own: a play of one more is
// refused with result::noRoom. One thread of its own opens, closes and watches all pipelines; GStreamer's threads carry
// the data.
class GStreamerEngine final : public Engine {
public:
    static constexpr std::size_t mostShown = 16;

    GStreamerEngine();
    ~GStreamerEngine() override;

    const char* name() const override { return "gstreamer"; }
    void shutDown() override;

    void open(const Terminal& terminal, const Source& source, Events events) override;
    void close(const Terminal& terminal) override;
    void swap(const Terminal& a, const Terminal& b) override;
    std::int32_t choose(const Terminal& terminal, TrackKind kind, std::int32_t number) override;
    Tracks tracks(const Terminal& terminal) const override;
    StreamCounts streamCounts(const Source& channel) const override;
    tvservice::TvServiceTunerStatusMessage_t tuning(const Terminal& terminal, const Source& channel) const override;
    tvservice::TvServiceTunerResult_t signal(const Terminal& terminal) const override;
    std::string snapshot(const Terminal& terminal) const override;
    Sound sound(const Terminal& terminal) const override;

private:
    // What a terminal shows, or is about to show.
    struct Shown {
        Source source;
        Events events; // opened: empty once it has been called
        std::unique_ptr<Playback> playback;
    };

    // Runs a function on the engine's thread, later or (call) before it returns.
    void post(std::function<void()> work) const;
    template <class Work> auto call(Work work) const;

    // On the engine's thread.
    void begin(const Terminal& terminal, const Source& source, Events events);
    void end(const Terminal& terminal);
    void opened(std::uint64_t number);
    void over(std::uint64_t number, const Outcome& outcome);
    std::shared_ptr<Multiplex> multiplexOf(const std::string& transport);
    static gboolean releaseLingering(void* self);
    const Playback* find(const Terminal& terminal) const;

    GMainContext* const context_;
    GMainLoop* const loop_;
    // Used on the engine's thread only. At most mostShown. The number is different for
    // each source that was opened: what happens late to a former one is ignored.
    std::map<std::uint64_t, Shown> shown_;
    std::map<Terminal, std::uint64_t> numbers_;
    std::uint64_t lastNumber_ = 0;
    std::map<std::string, std::weak_ptr<Multiplex>> multiplexes_; // by transport
    // The newest one, also when nothing shows it: a zap inside it, which stops the old channel first, keeps the input.
    std::shared_ptr<Multiplex> lingering_;
    std::thread thread_;
};

} // namespace media
