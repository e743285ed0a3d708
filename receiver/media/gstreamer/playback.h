// What one terminal shows: a pipeline of its own, from the source to the picture and the sound.
#pragma once

#include "glib-pointers.h"
#include "multiplex.h"
#include "screen.h"
#include "sound-meter.h"
#include "track-lists.h"

#include <array>
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
        std::function<void()> shown;  // the first picture or sound is decoded; once
        std::function<void()> tracks; // of a channel have changed
        std::function<void()> signal; // the input of a channel receives nothing any more, or something again
        // The source is at its end (result::done) or has failed; once. Nothing happens afterwards.
        std::function<void(const Outcome&)> over;
    };

    // multiplex: where the packets of source's program come from; null for what has no transport stream. Throws
    // Error when it cannot be shown.
    Playback(const Source& source, std::shared_ptr<Multiplex> multiplex, Output output, GMainContext* context,
             Post post, Events events);
    ~Playback();

    std::int32_t choose(TrackKind kind, std::int32_t number);
    Tracks tracks(const Terminal& terminal) const;
    std::string snapshot() const;
    Sound sound() const { return meter_.sound(); }
    // Where pictures and sound go from now on.
    void moveTo(Output output);

private:
    // Of one kind: what is decoded.
    struct Branch {
        std::uint16_t pid = 0;             // 0: none
        std::vector<GstElement*> elements; // from the demuxer on
    };

    void take(std::span<const std::uint8_t> packets) override;
    void begins(std::uint16_t program, std::int64_t due) override;
    void changed() override;
    void signal(bool present) override;
    void missing(const std::string& others) override;
    void failed(const Outcome& outcome) override;
    void ended() override;

    template <void (Playback::*link)(GstPad*)> void attempt(GstPad* pad);
    template <void (Playback::*link)(GstPad*)> void connectPads(GstElement* element);
    void buildProgram();
    void buildAddress(const std::string& uri);
    void buildInput();
    void buildTestPicture(const std::string& name);

    GstElement* add(TrackKind kind, const char* factory);
    void linkPad(GstPad* pad);
    void linkRaw(GstPad* pad);
    void decode(TrackKind kind, GstPad* pad);
    void decodeText(const Stream& stream, GstPad* pad);
    void decodePage(const Stream& stream, GstPad* pad);
    void addOverlays(const Program& program);
    void addVideoSink(GstPad* pad);
    void addAudioSink(GstPad* pad);
    GstElement* addPictureSink(TrackKind kind);
    GstElement* addSoundCard();
    void moveSound();
    void replaceSoundCard(GstPad* pad);
    void unlink(TrackKind kind);
    void relink(TrackKind kind);
    std::vector<Owner<GstPad>> pads() const;

    Program program() const { return multiplex_->program(program_); }
    Branch& branch(TrackKind kind) TVSA_REQUIRES(mutex_) { return branches_[static_cast<std::size_t>(kind)]; }
    void measureRate(GstPad* pad);
    void sawBuffer();
    void endWith(const Outcome& outcome); // soon, on the engine's thread; from any thread
    void finish(const Outcome& outcome);
    static GstPadProbeReturn showAtOnce(GstPad* pad, GstPadProbeInfo* info, void* self);
    static void showPicture(GstElement* sink, GstBuffer* buffer, GstPad* pad, void* self);
    static void showText(GstElement* sink, GstBuffer* buffer, GstPad* pad, void* self);
    static gboolean takeMessage(GstBus* bus, GstMessage* message, void* self);
    PictureFormat pictureFormat() const;

    const Source source_;
    const std::shared_ptr<Multiplex> multiplex_;
    const Post post_;
    const Events events_;
    Owner<GstElement> pipeline_;
    GstElement* packets_ = nullptr; // the pipeline's; takes a program's packets
    GstElement* demuxer_ = nullptr; // the pipeline's; of a program
    Owner<GSource> watch_;
    bool over_ = false;
    std::vector<Stream> streams_; // as last reported

    std::atomic<std::uint16_t> program_;                       // its number; 0 until the first one of all is known
    std::atomic<bool> hasPictures_ = false, hasSound_ = false; // without pictures, the first sound is waited for

    std::atomic<std::int32_t> measuredRate_ = 0; // pictures in a second, when their format does not say; 0: not known

    mutable thread_safety::Mutex mutex_; // pads are added on threads of the pipeline
    Output output_ TVSA_GUARDED_BY(mutex_);
    bool seen_ TVSA_GUARDED_BY(mutex_) = false;
    std::string missingCodec_ TVSA_GUARDED_BY(mutex_);
    ChosenTracks chosen_ TVSA_GUARDED_BY(mutex_);
    SoundFormat soundFormat_ TVSA_GUARDED_BY(mutex_);
    std::array<Branch, trackKinds.size()> branches_ TVSA_GUARDED_BY(mutex_);
    // The pipeline's, or null: the sinks of the picture and of the teletext page, which covers it; what draws subtitles
    // into the picture.
    GstElement* picture_ TVSA_GUARDED_BY(mutex_) = nullptr;
    GstElement* page_ TVSA_GUARDED_BY(mutex_) = nullptr;
    GstElement* bitmaps_ TVSA_GUARDED_BY(mutex_) = nullptr;
    GstElement* text_ TVSA_GUARDED_BY(mutex_) = nullptr;
    // Of what has no demuxer: what the sound card is linked to, when it is there; and the card.
    GstElement* soundEnd_ TVSA_GUARDED_BY(mutex_) = nullptr;
    const char* usedSoundCard_ TVSA_GUARDED_BY(mutex_) = nullptr;
    thread_safety::Mutex replacing_; // the card
    SoundMeter meter_;
};

} // namespace media
