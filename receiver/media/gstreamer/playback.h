// What one terminal shows: a pipeline of its own, from the source to the picture and the sound.
#pragma once

#include "glib-pointers.h"
#include "multiplex.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <gst/app/gstappsrc.h>
#include <media/engine.h>
#include <memory>
#include <span>
#include <string>
#include <thread-safety/mutex.h>
#include <vector>

namespace media {

// All calls on the engine's thread, except where said.
class Playback final : private Multiplex::Receiver {
public:
    // Runs a function later on the engine's thread, unless the playback has ended by then. From any thread.
    using Post = std::function<void(std::function<void()>)>;
    struct Events {
        std::function<void()> shown; // the first picture or sound is decoded; once
        // The source is at its end (result::done) or has failed; once. Nothing happens afterwards.
        std::function<void(const Outcome&)> over;
    };

    // multiplex: of a channel; null for everything else. Throws Error when an element is missing.
    Playback(const Source& source, std::shared_ptr<Multiplex> multiplex, GMainContext* context, Post post,
             Events events);
    ~Playback();

    std::int32_t choose(TrackKind kind, std::int32_t number);
    Tracks tracks(const Terminal& terminal) const;
    std::string snapshot() const;
    Sound sound() const;

private:
    // The newest sound, for sound().
    class Ear {
    public:
        void take(GstBuffer* buffer);
        void clear();
        Sound sound() const;
        static constexpr std::int32_t rate = 48'000;

    private:
        static constexpr std::size_t most = rate / 4;
        mutable thread_safety::Mutex mutex_;
        std::vector<std::int16_t> samples_ TVSA_GUARDED_BY(mutex_); // mono; at most `most`
    };

    void take(std::span<const std::uint8_t> packets) override;
    void missing(const std::string& others) override;
    void failed(const Outcome& outcome) override;

    template <void (Playback::*link)(GstPad*)> void attempt(GstPad* pad);
    template <void (Playback::*link)(GstPad*)> void connectPads(GstElement* element);
    void buildChannel();
    void buildAddress();
    void linkPad(GstPad* pad);
    void linkRaw(GstPad* pad);
    void decode(GstPad* pad);
    void addVideoSink(GstPad* pad);
    void addAudioSink(GstPad* pad);
    void sawBuffer();
    void finish(const Outcome& outcome);
    static gboolean takeMessage(GstBus* bus, GstMessage* message, void* self);
    const Stream* streamOf(const Program& program, Stream::Kind kind, std::int32_t number) const;

    const Source source_;
    const std::shared_ptr<Multiplex> multiplex_;
    const Post post_;
    const Events events_;
    Owner<GstElement> pipeline_;
    GstElement* packets_ = nullptr; // the pipeline's; takes a channel's packets
    GstElement* demuxer_ = nullptr; // the pipeline's; of a channel
    Owner<GSource> watch_;
    bool over_ = false;

    mutable thread_safety::Mutex mutex_;                    // pads are added on threads of the pipeline
    GstElement* picture_ TVSA_GUARDED_BY(mutex_) = nullptr; // the pipeline's sink
    bool seen_ TVSA_GUARDED_BY(mutex_) = false;
    std::string missingCodec_ TVSA_GUARDED_BY(mutex_);
    std::int32_t video_ TVSA_GUARDED_BY(mutex_) = 1, audio_ TVSA_GUARDED_BY(mutex_) = 1; // the chosen tracks
    std::uint16_t audioPid_ TVSA_GUARDED_BY(mutex_) = 0;                                 // that is decoded
    std::vector<GstElement*> audioElements_ TVSA_GUARDED_BY(mutex_); // of the chosen track, from the demuxer on
    std::atomic<bool> hasPictures_ = false, hasSound_ = false;       // without pictures, the first sound is waited for
    Ear ear_;
};

} // namespace media
