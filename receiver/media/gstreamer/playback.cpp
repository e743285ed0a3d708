#include "playback.h"

#include "element.h"
#include "failure.h"
#include "frame-rate.h"
#include "packet.h"
#include "picture-limit.h"

#include <ov/uri.h>
#include <tvservice-adapter/service/log.h>
#include <tvservice-adapter/service/mm-uris.h>
#include <tvservice/values.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <filesystem>
#include <gst/pbutils/missing-plugins.h>
#include <gst/video/video.h>
#include <optional>
#include <utility>

namespace media {
namespace {

constexpr guint64 mostQueuedBytes = guint64{16} << 20; // before the demuxer: a group of pictures at once, and more
// How much later than the broadcaster means a picture is shown: packets may come that much too late.
constexpr std::int64_t jitter = 100 * GST_MSECOND;
// How long the picture after the first one may wait: the broadcaster's times are not to be trusted.
constexpr std::int64_t longestWait = 2 * GST_SECOND;

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

bool linkTo(GstPad* pad, GstElement* element, const char* entry = "sink") {
    const Owner<GstPad> sink(gst_element_get_static_pad(element, entry));
    return gst_pad_link(pad, sink.get()) == GST_PAD_LINK_OK;
}

bool linkAll(const std::vector<GstElement*>& elements) {
    for (std::size_t i = 1; i < elements.size(); ++i)
        if (!gst_element_link(elements[i - 1], elements[i])) return false;
    return true;
}

// The last one first: none gets data before the next one can take it.
void startAll(const std::vector<GstElement*>& elements) {
    for (auto element = elements.rbegin(); element != elements.rend(); ++element)
        gst_element_sync_state_with_parent(*element);
}

// Without a limit but for bytes: it decouples the streams of a demuxer. Without it, one that waits for its clock would
// stop all others.
GstElement* asStreamQueue(GstElement* queue) {
    g_object_set(queue, "max-size-buffers", 0U, "max-size-time", guint64{0}, "max-size-bytes",
                 static_cast<guint>(mostQueuedBytes), nullptr);
    return queue;
}

void setCaps(GstElement* element, const char* text) {
    const Owner<GstCaps> caps(gst_caps_from_string(text));
    g_object_set(element, "caps", caps.get(), nullptr);
}

// Of a textoverlay, which expects markup. Without text, it leaves the pictures as they are.
void setText(GstElement* overlay, const std::string& text) {
    const Owner<char> markup(g_markup_escape_text(text.c_str(), -1));
    g_object_set(overlay, "text", markup.get(), "silent", text.empty() ? TRUE : FALSE, nullptr);
}

// Makes an overlay forget what it draws, and what it would draw later.
void forgetBitmaps(GstElement* overlay) {
    const Owner<GstPad> entry(gst_element_get_static_pad(overlay, "text_sink"));
    gst_pad_send_event(entry.get(), gst_event_new_flush_start());
    gst_pad_send_event(entry.get(), gst_event_new_flush_stop(TRUE));
}

// How many pictures a format says that there are in a second; 0: it does not say.
std::int32_t perSecondIn(const GstCaps* format) {
    GstVideoInfo info;
    if (!format || !gst_video_info_from_caps(&info, format) || GST_VIDEO_INFO_FPS_D(&info) <= 0) return 0;
    return static_cast<std::int32_t>(
        std::lround(double{1} * GST_VIDEO_INFO_FPS_N(&info) / GST_VIDEO_INFO_FPS_D(&info)));
}

// Throws Error.
std::string fileUriOf(const std::string& uri) {
    const Owner<char> file(g_filename_to_uri(services::localPathOf(uri).c_str(), nullptr, nullptr));
    if (!file) throw Error("not the path of a file: " + uri);
    return file.get();
}

std::string schemeOf(const std::string& uri) { return ov::orveltools::uri::LtUri(uri).getScheme(); }

// The input that an address names, for people: "1" in hdmi://1, and in the path switch's rec://plain/hdmi?id=0.
std::optional<std::string> inputIn(const std::string& uri) {
    constexpr std::string_view plain = "hdmi://", switched = "rec://plain/hdmi?id=";
    if (uri.starts_with(plain)) return uri.substr(plain.size());
    if (!uri.starts_with(switched)) return std::nullopt;
    int id = 0;
    std::from_chars(uri.data() + switched.size(), uri.data() + uri.size(), id);
    return std::to_string(id + 1);
}

} // namespace

// ---- building ----

Playback::Playback(const Source& source, std::shared_ptr<Multiplex> multiplex, Output output, GMainContext* context,
                   Post post, Events events)
    : source_(source),
      multiplex_(std::move(multiplex)),
      post_(std::move(post)),
      events_(std::move(events)),
      pipeline_(GST_ELEMENT(gst_object_ref_sink(gst_pipeline_new(nullptr)))),
      program_(static_cast<std::uint16_t>(source.program)),
      output_(std::move(output)) {
    const Owner<GstBus> bus(gst_element_get_bus(pipeline_.get()));
    watch_.reset(gst_bus_create_watch(bus.get()));
    g_source_set_callback(watch_.get(), reinterpret_cast<GSourceFunc>(reinterpret_cast<void (*)()>(takeMessage)), this,
                          nullptr);
    g_source_attach(watch_.get(), context);
    limitPictures(pipeline_.get(), [this](const std::string& reason) { endWith({result::tooLarge, reason}); });
    namespace Scheme = ov::orveltools::uri::Scheme;
    constexpr std::string_view testPicture = "test://";
    const std::string scheme = schemeOf(source_.uri);
    if (multiplex_)
        buildProgram();
    else if (source_.transport.starts_with(testPicture))
        buildTestPicture(source_.transport.substr(testPicture.size()));
    else if (inputIn(source_.uri))
        buildInput();
    else if (scheme == Scheme::File || scheme == Scheme::Fsl2)
        buildAddress(fileUriOf(source_.uri));
    else if (scheme == Scheme::Http || scheme == Scheme::Https)
        buildAddress(source_.uri);
    else
        throw Error("nothing here shows addresses of the kind " + scheme + ':');
    // A program's times are those of its broadcast, and begins says which of them is now. No sound card's clock.
    const Owner<GstClock> clock(gst_system_clock_obtain());
    gst_pipeline_use_clock(GST_PIPELINE(pipeline_.get()), clock.get());
    if (multiplex_) gst_element_set_start_time(pipeline_.get(), GST_CLOCK_TIME_NONE);
    if (gst_element_set_state(pipeline_.get(), GST_STATE_PLAYING) == GST_STATE_CHANGE_FAILURE) {
        while (const Owner<GstMessage> message{gst_bus_pop(bus.get())}) takeMessage(bus.get(), message.get(), this);
        endWith({result::noConnection, source_.uri + " cannot be opened"}); // unless a message has said why
    }
    if (multiplex_) multiplex_->add(*this, program_);
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
        endWith({result::codecMissing, error.what()});
    }
}

// Calls link for each stream that an element finds.
template <void (Playback::*link)(GstPad*)> void Playback::connectPads(GstElement* element) {
    g_signal_connect(element, "pad-added",
                     G_CALLBACK(+[](GstElement*, GstPad* pad, Playback* self) { self->attempt<link>(pad); }), this);
}

void Playback::buildProgram() {
    hasPictures_ = true; // or none comes, and nothing is shown
    packets_ = addElement(pipeline_.get(), "appsrc");
    demuxer_ = addElement(pipeline_.get(), "tsdemux");
    setCaps(packets_, "video/mpegts,systemstream=true,packetsize=188");
    // Beyond the bytes, the oldest packets are dropped: a decoder that hangs must not fill the memory.
    g_object_set(packets_, "format", GST_FORMAT_BYTES, "max-bytes", mostQueuedBytes, "leaky-type",
                 GST_APP_LEAKY_TYPE_DOWNSTREAM, nullptr);
    if (!gst_element_link(packets_, demuxer_)) throw Error("GStreamer cannot link the demultiplexer");
    connectPads<&Playback::linkPad>(demuxer_);
}

void Playback::buildAddress(const std::string& uri) {
    GstElement* const decoder = addElement(pipeline_.get(), "uridecodebin");
    g_object_set(decoder, "uri", uri.c_str(), nullptr);
    connectPads<&Playback::linkRaw>(decoder);
}

// The first input is the first capture device. Without one, a picture says which input would be seen.
void Playback::buildInput() {
    const std::string input = inputIn(source_.uri).value_or("");
    int number = 0;
    std::from_chars(input.data(), input.data() + input.size(), number);
    const std::string device = "/dev/video" + std::to_string(number - 1);
    std::error_code error;
    if (number < 1 || !std::filesystem::exists(device, error)) return buildTestPicture("HDMI " + input);
    GstElement* const capture = addElement(pipeline_.get(), "v4l2src");
    GstElement* const decoder = addElement(pipeline_.get(), "decodebin");
    g_object_set(capture, "device", device.c_str(), nullptr);
    if (!linkAll({capture, decoder})) throw Error("GStreamer cannot link " + device);
    connectPads<&Playback::linkRaw>(decoder);
}

void Playback::buildTestPicture(const std::string& name) {
    GstElement* const picture = addElement(pipeline_.get(), "videotestsrc");
    GstElement* const format = addElement(pipeline_.get(), "capsfilter");
    GstElement* const caption = addElement(pipeline_.get(), "textoverlay");
    GstElement* const tone = addElement(pipeline_.get(), "audiotestsrc");
    g_object_set(picture, "is-live", TRUE, nullptr);
    setCaps(format, "video/x-raw,format=I420,width=720,height=576,framerate=25/1");
    g_object_set(caption, "font-desc", "Sans Bold 40", nullptr);
    setText(caption, name);
    constexpr double quiet = 0.1;
    g_object_set(tone, "is-live", TRUE, "volume", quiet, nullptr);
    if (!linkAll({picture, format, caption})) throw Error("GStreamer cannot link the test picture");
    hasPictures_ = hasSound_ = true;
    for (GstElement* const source : {caption, tone}) {
        const Owner<GstPad> pad(gst_element_get_static_pad(source, "src"));
        source == tone ? addAudioSink(pad.get()) : addVideoSink(pad.get());
    }
}

// ---- linking ----

// Adds an element to what decodes a kind.
GstElement* Playback::add(TrackKind kind, const char* factory) {
    GstElement* const element = addElement(pipeline_.get(), factory);
    const thread_safety::LockGuard lock(mutex_);
    branch(kind).elements.push_back(element);
    return element;
}

// A stream of a channel: decodes it when it is chosen.
void Playback::linkPad(GstPad* pad) {
    if (gst_pad_is_linked(pad)) return;
    const std::uint16_t pid = pidOf(pad);
    const Program program = this->program();
    for (const TrackKind kind : trackKinds) {
        const Stream* stream = nullptr;
        {
            const thread_safety::LockGuard lock(mutex_);
            stream = streamOf(program, kind, chosen_[kind]);
            if (!stream || stream->pid != pid || branch(kind).pid == pid) continue;
            branch(kind).pid = pid;
        }
        if (kind == TrackKind::subtitle) return decodeText(*stream, pad);
        if (kind == TrackKind::teletext) return decodePage(*stream, pad);
        if (kind == TrackKind::video) addOverlays(program);
        return decode(kind, pad);
    }
}

void Playback::decode(TrackKind kind, GstPad* pad) {
    GstElement* const queue = asStreamQueue(add(kind, "queue"));
    GstElement* const decoder = add(kind, "decodebin");
    connectPads<&Playback::linkRaw>(decoder);
    gst_element_link(queue, decoder);
    startAll({queue, decoder});
    linkTo(pad, queue);
}

// What draws subtitles. Only for programs that have some: it would take time of every picture.
void Playback::addOverlays(const Program& program) {
    for (const Stream& stream : program.streams) {
        if (stream.kind != Stream::Kind::subtitle) continue;
        const bool areBitmaps = stream.coding == tvservice::subtitleCoding::bitmaps;
        {
            const thread_safety::LockGuard lock(mutex_);
            if (areBitmaps ? bitmaps_ : text_) continue;
        }
        GstElement* overlay = nullptr;
        try {
            overlay = add(TrackKind::video, areBitmaps ? "dvbsuboverlay" : "textoverlay");
        } catch (const MissingElement& error) { // the picture is shown all the same
            SERVICE_LOG(vdlDebugWarning, "no subtitles: %s\n", error.what());
            continue;
        }
        if (!areBitmaps) setText(overlay, {});
        const thread_safety::LockGuard lock(mutex_);
        (areBitmaps ? bitmaps_ : text_) = overlay;
    }
}

void Playback::decodeText(const Stream& stream, GstPad* pad) {
    GstElement *bitmaps = nullptr, *text = nullptr;
    {
        const thread_safety::LockGuard lock(mutex_);
        bitmaps = bitmaps_;
        text = text_;
    }
    constexpr auto kind = TrackKind::subtitle;
    if (stream.coding == tvservice::subtitleCoding::bitmaps) {
        if (!bitmaps) return;
        GstElement* const queue = asStreamQueue(add(kind, "queue"));
        const Owner<GstPad> source(gst_element_get_static_pad(queue, "src"));
        linkTo(source.get(), bitmaps, "text_sink");
        g_object_set(bitmaps, "enable", TRUE, nullptr);
        startAll({queue});
        linkTo(pad, queue);
    } else if (text) {
        // The overlay takes texts with an end only, but a page is shown until the next one: so each is set when it is
        // due.
        const std::vector<GstElement*> elements{asStreamQueue(add(kind, "queue")), add(kind, "teletextdec"),
                                                add(kind, "capsfilter"), add(kind, "fakesink")};
        g_object_set(elements[1], "page", static_cast<int>(stream.page), "subtitles-mode", TRUE, "subtitles-template",
                     "%s\n", nullptr);
        setCaps(elements[2], "text/x-raw,format=utf-8");
        g_object_set(elements[3], "sync", TRUE, "async", FALSE, "enable-last-sample", FALSE, "signal-handoffs", TRUE,
                     nullptr);
        g_signal_connect(elements[3], "handoff", G_CALLBACK(showText), this);
        linkAll(elements);
        startAll(elements);
        linkTo(pad, elements.front());
    }
}

void Playback::decodePage(const Stream& stream, GstPad* pad) {
    constexpr auto kind = TrackKind::teletext;
    const std::vector<GstElement*> elements{asStreamQueue(add(kind, "queue")), add(kind, "teletextdec"),
                                            add(kind, "videoconvert"), addPictureSink(kind)};
    g_object_set(elements[1], "page", static_cast<int>(stream.page), nullptr);
    linkAll(elements);
    {
        const thread_safety::LockGuard lock(mutex_);
        page_ = elements.back();
    }
    startAll(elements);
    linkTo(pad, elements.front());
}

// Of an address, all streams come before any data does: the first of each kind is shown.
void Playback::linkRaw(GstPad* pad) {
    const Owner<GstCaps> caps(gst_pad_get_current_caps(pad));
    if (!caps || gst_caps_get_size(caps.get()) == 0) return;
    const GstStructure* const format = gst_caps_get_structure(caps.get(), 0);
    if (const std::string reason = whyTooLarge(*format); !reason.empty()) return endWith({result::tooLarge, reason});
    const std::string_view kind = gst_structure_get_name(format);
    if (kind.starts_with("audio/")) {
        const thread_safety::LockGuard lock(mutex_);
        gst_structure_get_int(format, "channels", &soundFormat_.channels);
        gst_structure_get_int(format, "rate", &soundFormat_.rate);
    }
    if (kind.starts_with("video/") && (multiplex_ || !hasPictures_.exchange(true)))
        addVideoSink(pad);
    else if (kind.starts_with("audio/") && (multiplex_ || !hasSound_.exchange(true)))
        addAudioSink(pad);
}

GstElement* Playback::addPictureSink(TrackKind kind) {
    GstElement* const sink = add(kind, "fakesink");
    // It never waits for a first picture to begin: what is first, is shown first.
    g_object_set(sink, "sync", TRUE, "async", FALSE, "enable-last-sample", TRUE, "signal-handoffs", TRUE, nullptr);
    g_signal_connect(sink, "handoff", G_CALLBACK(showPicture), this);
    return sink;
}

void Playback::addVideoSink(GstPad* pad) {
    constexpr auto kind = TrackKind::video;
    constexpr guint pictures = 3;
    std::vector<GstElement*> elements{add(kind, "queue")};
    g_object_set(elements.front(), "max-size-buffers", pictures, "max-size-time", guint64{0}, "max-size-bytes", 0U,
                 nullptr);
    GstElement* const sink = addPictureSink(kind);
    {
        const thread_safety::LockGuard lock(mutex_);
        for (GstElement* const overlay : {bitmaps_, text_})
            if (overlay) elements.push_back(overlay);
        picture_ = sink;
    }
    for (std::size_t i = 1; i < elements.size(); ++i) // overlays have several entries
        gst_element_link_pads(elements[i - 1], "src", elements[i], "video_sink");
    // Overlays leave the drawing to a sink that could do it, but a snapshot shows only the picture itself.
    GstElement* const drawn = add(kind, "capsfilter");
    setCaps(drawn, "video/x-raw");
    linkAll({elements.back(), drawn, sink});
    elements.insert(elements.end(), {drawn, sink});
    const Owner<GstPad> entry(gst_element_get_static_pad(sink, "sink"));
    gst_pad_add_probe(entry.get(), GST_PAD_PROBE_TYPE_BUFFER, showAtOnce, this, nullptr);
    if (multiplex_) measureRate(pad);
    startAll(elements);
    linkTo(pad, elements.front());
}

void Playback::addAudioSink(GstPad* pad) {
    constexpr auto kind = TrackKind::audio;
    std::vector<GstElement*> elements{add(kind, "queue"), add(kind, "audioconvert"), add(kind, "audioresample"),
                                      add(kind, "capsfilter")};
    setCaps(elements.back(), SoundMeter::format);
    const Owner<GstPad> samples(gst_element_get_static_pad(elements.back(), "src"));
    gst_pad_add_probe(
        samples.get(), GST_PAD_PROBE_TYPE_BUFFER,
        [](GstPad*, GstPadProbeInfo* info, void* self) {
            auto& playback = *static_cast<Playback*>(self);
            playback.meter_.take(GST_PAD_PROBE_INFO_BUFFER(info));
            if (!playback.hasPictures_) playback.sawBuffer();
            return GST_PAD_PROBE_OK;
        },
        this, nullptr);
    GstElement* const end = elements.back();
    elements.push_back(addSoundCard());
    linkAll(elements);
    startAll(elements);
    linkTo(pad, elements.front());
    if (multiplex_) return;
    bool hasMoved = false;
    {
        const thread_safety::LockGuard lock(mutex_);
        soundEnd_ = end;
        hasMoved = output_.soundCard != usedSoundCard_;
    }
    if (hasMoved) moveSound();
}

// Adds what plays the sound: the card, or nothing in real time.
GstElement* Playback::addSoundCard() {
    const char* card = nullptr;
    {
        const thread_safety::LockGuard lock(mutex_);
        card = usedSoundCard_ = output_.soundCard;
    }
    GstElement* const sink = add(TrackKind::audio, card ? card : "fakesink");
    g_object_set(sink, "sync", TRUE, "async", FALSE, "enable-last-sample", FALSE, nullptr);
    return sink;
}

// Of what has no demuxer, whose sound cannot be decoded anew: replaces the sink between two buffers.
void Playback::moveSound() {
    Owner<GstPad> pad;
    {
        const thread_safety::LockGuard lock(mutex_);
        if (soundEnd_) pad.reset(gst_element_get_static_pad(soundEnd_, "src"));
    }
    if (!pad) return; // no sound, or not yet
    gst_pad_add_probe(
        pad.get(), GST_PAD_PROBE_TYPE_IDLE,
        [](GstPad* idle, GstPadProbeInfo*, void* self) {
            static_cast<Playback*>(self)->attempt<&Playback::replaceSoundCard>(idle);
            return GST_PAD_PROBE_REMOVE;
        },
        this, nullptr);
}

// On the engine's thread or one of the pipeline's.
void Playback::replaceSoundCard(GstPad* pad) {
    const thread_safety::LockGuard one(replacing_);
    GstElement* former = nullptr;
    {
        const thread_safety::LockGuard lock(mutex_);
        auto& elements = branch(TrackKind::audio).elements;
        former = elements.back();
        elements.pop_back();
    }
    gst_element_set_locked_state(former, TRUE);
    gst_element_set_state(former, GST_STATE_NULL);
    gst_bin_remove(GST_BIN(pipeline_.get()), former);
    GstElement* const sink = addSoundCard();
    gst_element_sync_state_with_parent(sink);
    linkTo(pad, sink);
    const Owner<GstEvent> end(gst_pad_get_sticky_event(pad, GST_EVENT_EOS, 0));
    if (end) gst_element_send_event(sink, gst_event_new_eos()); // nothing more comes to bring it
}

std::vector<Owner<GstPad>> Playback::pads() const {
    std::vector<Owner<GstPad>> all;
    GstIterator* const pads = gst_element_iterate_src_pads(demuxer_);
    GValue item = G_VALUE_INIT;
    while (gst_iterator_next(pads, &item) == GST_ITERATOR_OK) {
        all.emplace_back(GST_PAD(g_value_dup_object(&item)));
        g_value_reset(&item);
    }
    g_value_unset(&item);
    gst_iterator_free(pads);
    return all;
}

// Ends what is decoded of a kind, without blocking the demuxer: it drops what it cannot pass on.
void Playback::unlink(TrackKind kind) {
    std::uint16_t pid = 0;
    GstElement *bitmaps = nullptr, *text = nullptr;
    {
        const thread_safety::LockGuard lock(mutex_);
        pid = std::exchange(branch(kind).pid, std::uint16_t{0});
        if (kind == TrackKind::video) picture_ = bitmaps_ = text_ = nullptr;
        if (kind == TrackKind::teletext) page_ = nullptr;
        bitmaps = bitmaps_;
        text = text_;
    }
    for (const auto& pad : pads())
        if (pid != 0 && pidOf(pad.get()) == pid)
            if (const Owner<GstPad> peer(gst_pad_get_peer(pad.get())); peer) gst_pad_unlink(pad.get(), peer.get());
    for (;;) { // a decoder adds elements until it has stopped
        std::vector<GstElement*> elements;
        {
            const thread_safety::LockGuard lock(mutex_);
            elements.swap(branch(kind).elements);
        }
        if (elements.empty()) break;
        for (GstElement* const element : elements) {
            gst_element_set_locked_state(element, TRUE);
            gst_element_set_state(element, GST_STATE_NULL);
        }
        for (GstElement* const element : elements) gst_bin_remove(GST_BIN(pipeline_.get()), element);
    }
    // What is drawn would stay otherwise. Without the mutex: elements have locks of their own.
    if (kind == TrackKind::subtitle && bitmaps) {
        g_object_set(bitmaps, "enable", FALSE, nullptr);
        forgetBitmaps(bitmaps);
    }
    if (kind == TrackKind::subtitle && text) setText(text, {});
    if (kind == TrackKind::audio) meter_.clear();
}

void Playback::relink(TrackKind kind) {
    unlink(kind);
    for (const auto& pad : pads()) attempt<&Playback::linkPad>(pad.get());
}

// ---- what happens ----

// The first picture is shown when it is there, whenever it is due.
GstPadProbeReturn Playback::showAtOnce(GstPad*, GstPadProbeInfo* info, void*) {
    GstBuffer* const buffer = gst_buffer_make_writable(GST_PAD_PROBE_INFO_BUFFER(info));
    GST_BUFFER_PTS(buffer) = GST_BUFFER_DTS(buffer) = GST_CLOCK_TIME_NONE;
    info->data = buffer;
    return GST_PAD_PROBE_REMOVE;
}

// Of decoded pictures, whose format may not say it. When it is known, the tracks have changed.
void Playback::measureRate(GstPad* pad) {
    struct Measurement {
        Playback& playback;
        FrameRate rate = {};
    };
    measuredRate_ = 0;
    gst_pad_add_probe(
        pad, GST_PAD_PROBE_TYPE_BUFFER,
        [](GstPad* pictures, GstPadProbeInfo* info, void* data) {
            auto& measurement = *static_cast<Measurement*>(data);
            Playback& playback = measurement.playback;
            FrameRate& rate = measurement.rate;
            if (perSecondIn(Owner<GstCaps>(gst_pad_get_current_caps(pictures)).get()) != 0) return GST_PAD_PROBE_REMOVE;
            rate.take(GST_BUFFER_PTS(GST_PAD_PROBE_INFO_BUFFER(info)));
            if (rate.perSecond() == 0) return GST_PAD_PROBE_OK;
            playback.measuredRate_ = rate.perSecond();
            playback.post_([&playback] {
                if (!playback.over_) playback.events_.tracks();
            });
            return GST_PAD_PROBE_REMOVE;
        },
        new Measurement{*this}, [](void* data) { delete static_cast<Measurement*>(data); });
}

void Playback::showPicture(GstElement* sink, GstBuffer* buffer, GstPad* pad, void* self) {
    auto& playback = *static_cast<Playback*>(self);
    playback.sawBuffer(); // not before: only now can a snapshot be taken
    std::shared_ptr<Window> window;
    {
        const thread_safety::LockGuard lock(playback.mutex_);
        if (playback.page_ && playback.page_ != sink) return; // covered
        window = playback.output_.window;
    }
    if (!window) return;
    const Owner<GstCaps> caps(gst_pad_get_current_caps(pad));
    window->show(buffer, caps.get());
}

void Playback::showText(GstElement*, GstBuffer* buffer, GstPad*, void* self) {
    GstMapInfo map;
    if (!gst_buffer_map(buffer, &map, GST_MAP_READ)) return;
    const auto* const begin = reinterpret_cast<const char*>(map.data);
    std::string text(begin, std::find(begin, begin + map.size, '\0'));
    gst_buffer_unmap(buffer, &map);
    text.erase(text.find_last_not_of(" \n") + 1);
    Owner<GstElement> overlay;
    {
        auto& playback = *static_cast<Playback*>(self);
        const thread_safety::LockGuard lock(playback.mutex_);
        if (playback.text_) overlay.reset(GST_ELEMENT(gst_object_ref(playback.text_)));
    }
    if (overlay) setText(overlay.get(), text);
}

void Playback::sawBuffer() {
    {
        const thread_safety::LockGuard lock(mutex_);
        if (std::exchange(seen_, true)) return;
    }
    post_([this] {
        if (over_) return;
        if (multiplex_) streams_ = program().streams;
        events_.shown();
    });
}

void Playback::endWith(const Outcome& outcome) {
    post_([this, outcome] { finish(outcome); });
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
        playback.endWith(outcome); // ends the playback
    } else if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_EOS) {
        playback.endWith({});
    } else if (gst_is_missing_plugin_message(message)) {
        const thread_safety::LockGuard lock(playback.mutex_);
        playback.missingCodec_ = missingPluginIn(*message);
        if (!playback.seen_) playback.endWith({result::codecMissing, playback.missingCodec_});
    }
    return G_SOURCE_CONTINUE;
}

void Playback::take(std::span<const std::uint8_t> packets) {
    GstBuffer* const buffer = gst_buffer_new_memdup(packets.data(), packets.size());
    gst_app_src_push_buffer(GST_APP_SRC(packets_), buffer); // takes the buffer; never waits
}

// The demuxer's times begin with the first picture. What should have been shown before is decoded at once and then
// shown without waiting, so the terminal soon shows what the broadcaster means to be shown now.
void Playback::begins(std::uint16_t program, std::int64_t due) {
    program_ = program;
    g_object_set(demuxer_, "program-number", static_cast<int>(program), nullptr);
    constexpr std::int64_t tick = GST_SECOND / ticksPerSecond;
    const std::int64_t wait = std::clamp(due * tick + jitter, -longestWait, longestWait);
    const Owner<GstClock> clock(gst_system_clock_obtain());
    const auto now = static_cast<std::int64_t>(gst_clock_get_time(clock.get()));
    gst_element_set_base_time(pipeline_.get(), static_cast<GstClockTime>(now + wait));
}

void Playback::changed() {
    post_([this] {
        const std::vector<Stream> streams = program().streams;
        if (!over_ && streams != std::exchange(streams_, streams)) events_.tracks();
    });
}

void Playback::signal(bool) {
    post_([this] {
        if (!over_) events_.signal();
    });
}

void Playback::missing(const std::string& others) {
    endWith({result::noProgram, "program " + std::to_string(source_.program) + " is not among those of " +
                                    source_.transport + ": " + others});
}

void Playback::failed(const Outcome& outcome) { endWith(outcome); }

// What has come is shown first.
void Playback::ended() { gst_app_src_end_of_stream(GST_APP_SRC(packets_)); }

// ---- tracks ----

std::int32_t Playback::choose(TrackKind kind, std::int32_t number) {
    if (!multiplex_) return result::nothingShown; // no broadcast
    const Program program = this->program();
    const Stream* const stream = streamOf(program, kind, number);
    if (number != 0 && !stream) return result::unknownTrack;
    TrackKind other = kind;
    {
        const thread_safety::LockGuard lock(mutex_);
        if (number == chosen_[kind]) return result::done;
        chosen_[kind] = number;
        // Teletext and subtitles in it are one stream, which is decoded for the newer choice.
        for (const TrackKind each : trackKinds)
            if (each != kind && stream && branch(each).pid == stream->pid) other = each;
        if (other != kind) chosen_[other] = 0;
    }
    if (other != kind) unlink(other);
    // Subtitles are drawn into the picture by elements of its own.
    if (kind == TrackKind::video) unlink(TrackKind::subtitle);
    relink(kind);
    return result::done;
}

void Playback::moveTo(Output output) {
    bool movesSound = false;
    std::shared_ptr<Window> former;
    {
        const thread_safety::LockGuard lock(mutex_);
        movesSound = output.soundCard != output_.soundCard;
        former = std::exchange(output_, std::move(output)).window; // ends after the lock
    }
    if (movesSound) multiplex_ ? relink(TrackKind::audio) : moveSound();
}

PictureFormat Playback::pictureFormat() const {
    GstElement* picture = nullptr;
    {
        const thread_safety::LockGuard lock(mutex_);
        picture = picture_;
    }
    if (!picture) return {};
    const Owner<GstPad> entry(gst_element_get_static_pad(picture, "sink"));
    const Owner<GstCaps> caps(gst_pad_get_current_caps(entry.get()));
    GstVideoInfo info;
    if (!caps || !gst_video_info_from_caps(&info, caps.get())) return {};
    const std::int32_t said = perSecondIn(caps.get());
    return {GST_VIDEO_INFO_WIDTH(&info), GST_VIDEO_INFO_HEIGHT(&info), said != 0 ? said : measuredRate_.load()};
}

Tracks Playback::tracks(const Terminal& terminal) const {
    if (!multiplex_) return noTracks(terminal);
    ChosenTracks chosen;
    SoundFormat sound;
    {
        const thread_safety::LockGuard lock(mutex_);
        chosen = chosen_;
        sound = soundFormat_;
    }
    return tracksOf(terminal, program(), chosen, pictureFormat(), sound, source_.uri);
}

// ---- looking ----

std::string Playback::snapshot() const {
    std::array<GstElement*, 2> sinks{};
    {
        const thread_safety::LockGuard lock(mutex_);
        sinks = {page_, picture_};
    }
    GstSample* last = nullptr;
    for (GstElement* const sink : sinks)
        if (sink && !last) g_object_get(sink, "last-sample", &last, nullptr);
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

} // namespace media
