#include "playback.h"

#include "element.h"
#include "failure.h"

#include <tvservice/values.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <gst/pbutils/missing-plugins.h>
#include <gst/video/video.h>
#include <utility>

namespace media {
namespace {

constexpr guint64 mostQueuedBytes = guint64{16} << 20; // before the demuxer: a group of pictures at once, and more

// The name of a demuxer's pad ends with the PID: "audio_0_0101".
std::uint16_t pidOf(GstPad* pad) {
    const Owner<char> name(gst_pad_get_name(pad));
    const std::string_view text = name.get();
    const auto underscore = text.rfind('_');
    std::uint16_t pid = 0;
    if (underscore != std::string_view::npos)
        std::from_chars(text.data() + underscore + 1, text.data() + text.size(), pid, 16);
    return pid;
}

bool linkTo(GstPad* pad, GstElement* element) {
    const Owner<GstPad> sink(gst_element_get_static_pad(element, "sink"));
    return gst_pad_link(pad, sink.get()) == GST_PAD_LINK_OK;
}

// A queue decouples the streams of a demuxer: without it, one that waits for its clock would stop all others.
GstElement* addQueue(GstElement* pipeline) {
    GstElement* const queue = addElement(pipeline, "queue");
    g_object_set(queue, "max-size-buffers", 0U, "max-size-time", guint64{0}, "max-size-bytes",
                 static_cast<guint>(mostQueuedBytes), nullptr);
    return queue;
}

} // namespace

// ---- sound ----

void Playback::Ear::take(GstBuffer* buffer) {
    GstMapInfo map;
    if (!gst_buffer_map(buffer, &map, GST_MAP_READ)) return;
    const std::span<const std::int16_t> samples(reinterpret_cast<const std::int16_t*>(map.data),
                                                map.size / sizeof(std::int16_t));
    {
        const thread_safety::LockGuard lock(mutex_);
        samples_.insert(samples_.end(), samples.begin(), samples.end());
        if (samples_.size() > most)
            samples_.erase(samples_.begin(), samples_.end() - static_cast<std::ptrdiff_t>(most));
    }
    gst_buffer_unmap(buffer, &map);
}

void Playback::Ear::clear() {
    const thread_safety::LockGuard lock(mutex_);
    samples_.clear();
}

Sound Playback::Ear::sound() const {
    constexpr double fullScale = 32768, silence = -100;
    std::vector<std::int16_t> samples;
    {
        const thread_safety::LockGuard lock(mutex_);
        samples = samples_;
    }
    double squares = 0;
    for (const std::int16_t sample : samples) squares += double{sample / fullScale} * (sample / fullScale);
    Sound sound{silence, 0};
    if (samples.empty() || squares == 0) return sound;
    sound.level = std::max(silence, 10 * std::log10(squares / static_cast<double>(samples.size())));
    // The loudest of the tones from 50 Hz to 4 kHz, 10 Hz apart (Goertzel's algorithm).
    constexpr std::int32_t lowest = 50, highest = 4000, step = 10;
    double loudest = 0;
    for (std::int32_t pitch = lowest; pitch <= highest; pitch += step) {
        const double factor = 2 * std::cos(2 * M_PI * pitch / rate);
        double last = 0, previous = 0;
        for (const std::int16_t sample : samples) {
            const double next = sample / fullScale + factor * last - previous;
            previous = last;
            last = next;
        }
        const double power = last * last + previous * previous - factor * last * previous;
        if (power > loudest) {
            loudest = power;
            sound.pitch = pitch;
        }
    }
    return sound;
}

// ---- building ----

Playback::Playback(const Source& source, std::shared_ptr<Multiplex> multiplex, GMainContext* context, Post post,
                   Events events)
    : source_(source),
      multiplex_(std::move(multiplex)),
      post_(std::move(post)),
      events_(std::move(events)),
      pipeline_(GST_ELEMENT(gst_object_ref_sink(gst_pipeline_new(nullptr)))) {
    const Owner<GstBus> bus(gst_element_get_bus(pipeline_.get()));
    watch_.reset(gst_bus_create_watch(bus.get()));
    g_source_set_callback(watch_.get(), reinterpret_cast<GSourceFunc>(reinterpret_cast<void (*)()>(takeMessage)), this,
                          nullptr);
    g_source_attach(watch_.get(), context);
    if (multiplex_)
        buildChannel();
    else
        buildAddress();
    gst_element_set_state(pipeline_.get(), GST_STATE_PLAYING); // a failure comes as a message
    if (multiplex_) multiplex_->add(*this, static_cast<std::uint16_t>(source_.program));
}

Playback::~Playback() {
    if (multiplex_) multiplex_->remove(*this);
    watch_.reset();
    gst_element_set_state(pipeline_.get(), GST_STATE_NULL);
}

// An exception must not pass GStreamer's code, which calls from its threads.
template <void (Playback::*link)(GstPad*)> void Playback::attempt(GstPad* pad) {
    try {
        (this->*link)(pad);
    } catch (const MissingElement& error) {
        post_([this, outcome = Outcome{result::codecMissing, error.what()}] { finish(outcome); });
    }
}

// Calls link for each stream that an element finds.
template <void (Playback::*link)(GstPad*)> void Playback::connectPads(GstElement* element) {
    g_signal_connect(element, "pad-added",
                     G_CALLBACK(+[](GstElement*, GstPad* pad, Playback* self) { self->attempt<link>(pad); }), this);
}

void Playback::buildChannel() {
    hasPictures_ = true; // or none comes, and nothing is shown
    packets_ = addElement(pipeline_.get(), "appsrc");
    demuxer_ = addElement(pipeline_.get(), "tsdemux");
    const Owner<GstCaps> caps(gst_caps_from_string("video/mpegts,systemstream=true,packetsize=188"));
    // Beyond the bytes, the oldest packets are dropped: a decoder that hangs must not fill the memory.
    g_object_set(packets_, "caps", caps.get(), "format", GST_FORMAT_BYTES, "max-bytes", mostQueuedBytes, "leaky-type",
                 GST_APP_LEAKY_TYPE_DOWNSTREAM, nullptr);
    g_object_set(demuxer_, "program-number", source_.program, nullptr);
    if (!gst_element_link(packets_, demuxer_)) throw Error("GStreamer cannot link the demultiplexer");
    connectPads<&Playback::linkPad>(demuxer_);
}

void Playback::buildAddress() {
    GstElement* const decoder = addElement(pipeline_.get(), "uridecodebin");
    g_object_set(decoder, "uri", source_.uri.c_str(), nullptr);
    connectPads<&Playback::linkRaw>(decoder);
}

// A stream of a channel: decodes it when it is chosen.
void Playback::linkPad(GstPad* pad) {
    const std::uint16_t pid = pidOf(pad);
    const Program program = multiplex_->program(static_cast<std::uint16_t>(source_.program));
    bool isChosen = false;
    {
        const thread_safety::LockGuard lock(mutex_);
        const Stream* const video = streamOf(program, Stream::Kind::video, video_);
        const Stream* const audio = streamOf(program, Stream::Kind::audio, audio_);
        isChosen = (video && video->pid == pid) || (audio && audio->pid == pid);
        if (audio && audio->pid == pid) audioPid_ = pid;
    }
    if (isChosen) decode(pad);
}

void Playback::decode(GstPad* pad) {
    GstElement* const queue = addQueue(pipeline_.get());
    GstElement* const decoder = addElement(pipeline_.get(), "decodebin");
    connectPads<&Playback::linkRaw>(decoder);
    {
        const thread_safety::LockGuard lock(mutex_);
        if (pidOf(pad) == audioPid_) audioElements_ = {queue, decoder};
    }
    gst_element_link(queue, decoder);
    gst_element_sync_state_with_parent(decoder);
    gst_element_sync_state_with_parent(queue);
    linkTo(pad, queue);
}

// Of an address, all streams come before any data does: the first of each kind is shown.
void Playback::linkRaw(GstPad* pad) {
    const Owner<GstCaps> caps(gst_pad_get_current_caps(pad));
    if (!caps || gst_caps_get_size(caps.get()) == 0) return;
    const std::string_view kind = gst_structure_get_name(gst_caps_get_structure(caps.get(), 0));
    if (kind.starts_with("video/") && (multiplex_ || !hasPictures_.exchange(true)))
        addVideoSink(pad);
    else if (kind.starts_with("audio/") && (multiplex_ || !hasSound_.exchange(true)))
        addAudioSink(pad);
}

void Playback::addVideoSink(GstPad* pad) {
    GstElement* const queue = addElement(pipeline_.get(), "queue");
    GstElement* const sink = addElement(pipeline_.get(), "fakesink");
    constexpr guint pictures = 3;
    g_object_set(queue, "max-size-buffers", pictures, "max-size-time", guint64{0}, "max-size-bytes", 0U, nullptr);
    // It never waits for a first picture to begin: what is first, is shown first.
    g_object_set(sink, "sync", TRUE, "async", FALSE, "enable-last-sample", TRUE, nullptr);
    {
        const thread_safety::LockGuard lock(mutex_);
        if (!picture_) picture_ = sink;
    }
    const Owner<GstPad> entry(gst_element_get_static_pad(sink, "sink"));
    gst_pad_add_probe(
        entry.get(), GST_PAD_PROBE_TYPE_BUFFER,
        [](GstPad*, GstPadProbeInfo*, void* self) {
            static_cast<Playback*>(self)->sawBuffer();
            return GST_PAD_PROBE_REMOVE;
        },
        this, nullptr);
    gst_element_link(queue, sink);
    gst_element_sync_state_with_parent(sink);
    gst_element_sync_state_with_parent(queue);
    linkTo(pad, queue);
}

void Playback::addAudioSink(GstPad* pad) {
    GstElement* const queue = addElement(pipeline_.get(), "queue");
    GstElement* const convert = addElement(pipeline_.get(), "audioconvert");
    GstElement* const resample = addElement(pipeline_.get(), "audioresample");
    GstElement* const format = addElement(pipeline_.get(), "capsfilter");
    GstElement* const sink = addElement(pipeline_.get(), "fakesink");
    const Owner<GstCaps> caps(
        gst_caps_from_string("audio/x-raw,format=S16LE,layout=interleaved,channels=1,rate=48000"));
    g_object_set(format, "caps", caps.get(), nullptr);
    g_object_set(sink, "sync", TRUE, "async", FALSE, "enable-last-sample", FALSE, nullptr);
    const Owner<GstPad> entry(gst_element_get_static_pad(sink, "sink"));
    gst_pad_add_probe(
        entry.get(), GST_PAD_PROBE_TYPE_BUFFER,
        [](GstPad*, GstPadProbeInfo* info, void* self) {
            auto& playback = *static_cast<Playback*>(self);
            playback.ear_.take(GST_PAD_PROBE_INFO_BUFFER(info));
            if (!playback.hasPictures_) playback.sawBuffer();
            return GST_PAD_PROBE_OK;
        },
        this, nullptr);
    gst_element_link_many(queue, convert, resample, format, sink, nullptr);
    {
        const thread_safety::LockGuard lock(mutex_);
        if (!audioElements_.empty())
            audioElements_.insert(audioElements_.end(), {queue, convert, resample, format, sink});
    }
    for (GstElement* const element : {sink, format, resample, convert, queue})
        gst_element_sync_state_with_parent(element);
    linkTo(pad, queue);
}

// ---- what happens ----

void Playback::sawBuffer() {
    {
        const thread_safety::LockGuard lock(mutex_);
        if (std::exchange(seen_, true)) return;
    }
    post_([this] {
        if (!over_) events_.shown();
    });
}

void Playback::finish(const Outcome& outcome) {
    if (std::exchange(over_, true)) return;
    events_.over(outcome);
}

gboolean Playback::takeMessage(GstBus*, GstMessage* message, void* self) {
    auto& playback = *static_cast<Playback*>(self);
    if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR) {
        Outcome outcome = outcomeOf(*message);
        const thread_safety::LockGuard lock(playback.mutex_);
        if (!playback.missingCodec_.empty()) outcome = {result::codecMissing, playback.missingCodec_};
        playback.post_([&playback, outcome] { playback.finish(outcome); }); // ends the playback
    } else if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_EOS) {
        playback.post_([&playback] { playback.finish({}); });
    } else if (gst_is_missing_plugin_message(message)) {
        const Owner<char> what(gst_missing_plugin_message_get_description(message));
        const thread_safety::LockGuard lock(playback.mutex_);
        playback.missingCodec_ = what.get();
        if (!playback.seen_)
            playback.post_(
                [&playback, outcome = Outcome{result::codecMissing, what.get()}] { playback.finish(outcome); });
    }
    return G_SOURCE_CONTINUE;
}

void Playback::take(std::span<const std::uint8_t> packets) {
    GstBuffer* const buffer = gst_buffer_new_memdup(packets.data(), packets.size());
    gst_app_src_push_buffer(GST_APP_SRC(packets_), buffer); // takes the buffer; never waits
}

void Playback::missing(const std::string& others) {
    post_([this, outcome = Outcome{result::noProgram, "program " + std::to_string(source_.program) +
                                                          " is not among those of " + source_.transport + ": " +
                                                          others}] { finish(outcome); });
}

void Playback::failed(const Outcome& outcome) {
    post_([this, outcome] { finish(outcome); });
}

// ---- tracks ----

// Tracks are numbered from 1, in the order of the program's table.
const Stream* Playback::streamOf(const Program& program, Stream::Kind kind, std::int32_t number) const {
    for (const Stream& stream : program.streams)
        if (stream.kind == kind && --number == 0) return &stream;
    return nullptr;
}

std::int32_t Playback::choose(TrackKind kind, std::int32_t number) {
    const Program program = multiplex_ ? multiplex_->program(static_cast<std::uint16_t>(source_.program)) : Program{};
    if (kind != TrackKind::audio) return result::unknownTrack;
    const Stream* const stream = streamOf(program, Stream::Kind::audio, number);
    if (number != 0 && !stream) return result::unknownTrack;
    std::vector<GstElement*> former;
    std::uint16_t formerPid = 0;
    {
        const thread_safety::LockGuard lock(mutex_);
        if (number == audio_) return result::done;
        audio_ = number;
        formerPid = std::exchange(audioPid_, stream ? stream->pid : std::uint16_t{0});
        former.swap(audioElements_);
    }
    // Without blocking: the demuxer drops what it cannot pass on.
    GstIterator* const pads = gst_element_iterate_src_pads(demuxer_);
    GValue item = G_VALUE_INIT;
    std::vector<Owner<GstPad>> all;
    while (gst_iterator_next(pads, &item) == GST_ITERATOR_OK) {
        all.emplace_back(GST_PAD(g_value_dup_object(&item)));
        g_value_reset(&item);
    }
    g_value_unset(&item);
    gst_iterator_free(pads);
    for (const auto& pad : all)
        if (pidOf(pad.get()) == formerPid)
            if (const Owner<GstPad> peer(gst_pad_get_peer(pad.get())); peer) gst_pad_unlink(pad.get(), peer.get());
    for (GstElement* const element : former) {
        gst_element_set_locked_state(element, TRUE);
        gst_element_set_state(element, GST_STATE_NULL);
        gst_bin_remove(GST_BIN(pipeline_.get()), element);
    }
    ear_.clear();
    for (const auto& pad : all)
        if (stream && pidOf(pad.get()) == stream->pid) attempt<&Playback::decode>(pad.get());
    return result::done;
}

Tracks Playback::tracks(const Terminal& terminal) const {
    using Kind = Stream::Kind;
    Tracks tracks;
    for (auto* const at :
         {&tracks.audio.terminal, &tracks.subtitle.terminal, &tracks.video.terminal, &tracks.teletext.terminal})
        *at = {terminal.type, terminal.id};
    if (!multiplex_) return tracks;
    const Program program = multiplex_->program(static_cast<std::uint16_t>(source_.program));
    GstElement* picture = nullptr;
    {
        const thread_safety::LockGuard lock(mutex_);
        tracks.audio.intParam1 = audio_;
        tracks.video.intParam1 = video_;
        picture = picture_;
    }
    for (const Stream& stream : program.streams) {
        const auto number = [](const auto& streams) { return static_cast<std::int32_t>(streams.size()) + 1; };
        if (stream.kind == Kind::audio) {
            auto& audio = tracks.audio.streams.emplace_back();
            audio.intParam1 = number(tracks.audio.streams) - 1;
            audio.strParam1 = stream.language;
            audio.intParam2 = stream.coding;
            audio.shortParam1 = stream.pid;
            audio.shortParam2 = stream.tag;
            audio.flagParam1 = audio.intParam1 == tracks.audio.intParam1;
            audio.flagParam2 = stream.type == 3; // for the visually impaired
            audio.strParam3 = audio.flagParam2 ? "description" : "main";
            audio.strParam4 = source_.uri;
        } else if (stream.kind == Kind::video) {
            auto& video = tracks.video.streams.emplace_back();
            video.intParam1 = number(tracks.video.streams) - 1;
            video.intParam2 = stream.coding;
            video.shortParam1 = stream.pid;
            video.flagParam1 = video.intParam1 == tracks.video.intParam1;
        } else if (stream.kind == Kind::subtitle) {
            auto& subtitle = tracks.subtitle.streams.emplace_back();
            subtitle.intParam1 = number(tracks.subtitle.streams) - 1;
            subtitle.strParam1 = stream.language;
            subtitle.intParam2 = stream.coding;
            subtitle.intParam3 = stream.type;
            subtitle.shortParam1 = stream.pid;
            subtitle.shortParam2 = stream.page;
            subtitle.shortParam3 = stream.ancillaryPage;
            subtitle.flagParam2 = stream.type >= 0x20 && stream.type <= 0x25; // for the hard of hearing
            subtitle.strParam3 = source_.uri;
        } else if (stream.kind == Kind::teletext) {
            auto& teletext = tracks.teletext.streams.emplace_back();
            teletext.intParam1 = number(tracks.teletext.streams) - 1;
            teletext.strParam1 = stream.language;
            teletext.shortParam1 = stream.pid;
        }
    }
    if (!picture) return tracks;
    const Owner<GstPad> entry(gst_element_get_static_pad(picture, "sink"));
    const Owner<GstCaps> caps(gst_pad_get_current_caps(entry.get()));
    GstVideoInfo info;
    if (!caps || !gst_video_info_from_caps(&info, caps.get())) return tracks;
    tracks.video.intParam4 = GST_VIDEO_INFO_WIDTH(&info);
    tracks.video.intParam5 = GST_VIDEO_INFO_HEIGHT(&info);
    for (auto& video : tracks.video.streams) {
        if (!video.flagParam1) continue;
        video.shortParam3 = static_cast<std::uint16_t>(GST_VIDEO_INFO_WIDTH(&info));
        video.shortParam4 = static_cast<std::uint16_t>(GST_VIDEO_INFO_HEIGHT(&info));
        if (GST_VIDEO_INFO_FPS_D(&info) > 0)
            video.shortParam2 = static_cast<std::uint16_t>(
                std::lround(double{1} * GST_VIDEO_INFO_FPS_N(&info) / GST_VIDEO_INFO_FPS_D(&info)));
    }
    return tracks;
}

// ---- looking and listening ----

std::string Playback::snapshot() const {
    GstElement* picture = nullptr;
    {
        const thread_safety::LockGuard lock(mutex_);
        picture = picture_;
    }
    GstSample* last = nullptr;
    if (picture) g_object_get(picture, "last-sample", &last, nullptr);
    const Owner<GstSample> sample(last);
    if (!sample) throw Error("there is no picture yet");
    const Owner<GstCaps> format(gst_caps_from_string("image/png"));
    constexpr GstClockTime longest = 2 * GST_SECOND;
    GError* error = nullptr;
    const Owner<GstSample> converted(gst_video_convert_sample(sample.get(), format.get(), longest, &error));
    const Owner<GError> owned(error);
    if (!converted) throw Error(std::string("the picture cannot be converted: ") + (error ? error->message : ""));
    GstBuffer* const buffer = gst_sample_get_buffer(converted.get());
    GstMapInfo map;
    if (!gst_buffer_map(buffer, &map, GST_MAP_READ)) throw Error("the picture cannot be read");
    std::string bytes(reinterpret_cast<const char*>(map.data), map.size);
    gst_buffer_unmap(buffer, &map);
    return bytes;
}

Sound Playback::sound() const { return ear_.sound(); }

} // namespace media
