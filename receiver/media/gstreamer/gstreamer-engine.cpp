#include "gstreamer-engine.h"

#include "element.h"

#include <host/configuration.h>
#include <ov/uri.h>
#include <tvservice-adapter/service/mm-uris.h>
#include <tvservice-adapter/service/swap-keys.h>
#include <tvservice/values.h>

#include <csignal>
#include <future>
#include <malloc.h>
#include <media/plugin.h>
#include <media/service-id.h>
#include <stdexcept>
#include <utility>

namespace media {
namespace {

// How often what nothing uses is released: windows at once, the input at the second time.
constexpr guint releaseInterval = 5; // seconds
// How long a source may take to deliver its first picture. Longer than a request waits: its answer may come late.
constexpr guint longestOpening = 10; // seconds

// Signals are for the process's own threads: threads that are started meanwhile get none.
class BlockedSignals {
public:
    BlockedSignals() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &former_);
    }
    ~BlockedSignals() { pthread_sigmask(SIG_SETMASK, &former_, nullptr); }
    BlockedSignals(const BlockedSignals&) = delete;
    BlockedSignals& operator=(const BlockedSignals&) = delete;

private:
    sigset_t former_;
};

// No tuner is free.
struct Conflict : Error {
    using Error::Error;
};

} // namespace

void GStreamerEngine::post(std::function<void()> work) const {
    GSource* const source = g_idle_source_new();
    g_source_set_priority(source, G_PRIORITY_DEFAULT);
    runOnce(source, std::move(work));
    g_source_unref(source);
}

void GStreamerEngine::runOnce(GSource* source, std::function<void()> work) const {
    g_source_set_callback(
        source,
        [](void* context) {
            (*static_cast<std::function<void()>*>(context))();
            return G_SOURCE_REMOVE;
        },
        new std::function<void()>(std::move(work)),
        [](void* context) { delete static_cast<std::function<void()>*>(context); });
    g_source_attach(source, context_);
}

template <class Work> auto GStreamerEngine::call(Work work) const {
    if (std::this_thread::get_id() == thread_.get_id() || !thread_.joinable()) return work();
    std::packaged_task<decltype(work())()> task(std::move(work));
    auto result = task.get_future();
    post([&task] { task(); });
    return result.get();
}

GStreamerEngine::GStreamerEngine()
    : context_(g_main_context_new()),
      loop_(g_main_loop_new(context_, FALSE)),
      tuners_(host::numberIn(*host::setting("media.tuners"))) {
    start();
    try {
        call([this] {
            screen_ = Screen::configured();
            release_.reset(g_timeout_source_new_seconds(releaseInterval));
            g_source_set_callback(release_.get(), releaseUnused, this, nullptr);
            g_source_attach(release_.get(), context_);
        });
    } catch (...) {
        shutDown();
        throw;
    }
}

void GStreamerEngine::start() {
    const BlockedSignals blocked; // all threads of the pipelines inherit this
    thread_ = std::thread([this] {
        pthread_setname_np(pthread_self(), "media");
        g_main_context_push_thread_default(context_);
        g_main_loop_run(loop_);
        g_main_context_pop_thread_default(context_);
    });
}

GStreamerEngine::~GStreamerEngine() {
    shutDown();
    g_main_loop_unref(loop_);
    g_main_context_unref(context_);
}

void GStreamerEngine::shutDown() {
    if (!thread_.joinable()) return;
    call([this] {
        release_.reset(); // it uses the screen
        shown_.clear();
        numbers_.clear();
        lingering_.reset();
        screen_.reset();
    });
    post([this] { g_main_loop_quit(loop_); });
    thread_.join();
}

void GStreamerEngine::open(const Terminal& terminal, const Source& source, Events events) {
    post([this, terminal, source, events = std::move(events)] { begin(terminal, source, events); });
}

void GStreamerEngine::close(const Terminal& terminal) {
    post([this, terminal] { end(terminal); });
}

void GStreamerEngine::begin(const Terminal& terminal, const Source& source, Events events) {
    end(terminal);
    if (source.isChannel && source.transport.empty())
        return events.opened({result::noSource, "the channel list names no source of " + source.uri});
    if (shown_.size() >= mostShown)
        return events.opened({result::noRoom, std::to_string(mostShown) + " sources are shown already"});
    const std::uint64_t number = ++lastNumber_;
    Shown& shown = shown_[number];
    shown.source = source;
    shown.events = std::move(events);
    numbers_[terminal] = number;
    shown.limit.reset(g_timeout_source_new_seconds(longestOpening));
    runOnce(shown.limit.get(), [this, number] {
        over(number,
             {result::noConnection, "no picture or sound came within " + std::to_string(longestOpening) + " s"});
    });
    try {
        const auto postIfOpen = [this, number](std::function<void()> work) {
            post([this, number, work = std::move(work)] {
                if (shown_.contains(number)) work();
            });
        };
        shown.playback = std::make_unique<Playback>(
            source, multiplexOf(source), screen_->outputOf(terminal), context_, postIfOpen,
            Playback::Events{.shown = [this, number] { opened(number); },
                             .tracks = [this, number] { report(number, &Events::tracks); },
                             .signal = [this, number] { report(number, &Events::signal); },
                             .over = [this, number](const Outcome& outcome) { over(number, outcome); }});
    } catch (const Conflict& error) {
        over(number, {result::noTuner, error.what()});
    } catch (const MissingElement& error) {
        over(number, {result::codecMissing, error.what()});
    } catch (const Error& error) {
        over(number, {result::unsupportedUri, error.what()});
    }
}

void GStreamerEngine::opened(std::uint64_t number) {
    const auto shown = shown_.find(number);
    if (shown == shown_.end()) return;
    shown->second.limit.reset();
    if (const auto tell = std::exchange(shown->second.events.opened, {})) tell({});
}

// Of a source that has been opened.
void GStreamerEngine::report(std::uint64_t number, std::function<void()> Events::*event) {
    const auto shown = shown_.find(number);
    if (shown != shown_.end() && !shown->second.events.opened) (shown->second.events.*event)();
}

void GStreamerEngine::over(std::uint64_t number, const Outcome& outcome) {
    const auto shown = shown_.find(number);
    if (shown == shown_.end()) return;
    const Events events = std::exchange(shown->second.events, {});
    std::erase_if(numbers_, [this, number](const auto& entry) {
        if (entry.second != number) return false;
        screen_->clear(entry.first);
        return true;
    });
    post([this, number] { shown_.erase(number); }); // later: the playback is inside this call
    if (!events.opened) {
        if (events.over) events.over(outcome);
    } else if (outcome.result == result::done) {
        events.opened({result::notMedia, "the source ended before its first picture"});
    } else {
        events.opened(outcome);
    }
}

void GStreamerEngine::end(const Terminal& terminal) {
    const auto number = numbers_.find(terminal);
    if (number == numbers_.end()) return;
    const auto shown = shown_.extract(number->second);
    numbers_.erase(number);
    screen_->clear(terminal);
    if (shown && shown.mapped().events.opened) shown.mapped().events.opened({result::superseded, {}});
}

void GStreamerEngine::swap(const Terminal& a, const Terminal& b) {
    call([&] {
        services::swapKeys(numbers_, a, b);
        for (const Terminal& terminal : {a, b}) {
            if (Playback* const playback = find(terminal))
                playback->moveTo(screen_->outputOf(terminal));
            else
                screen_->clear(terminal);
        }
    });
}

// Null for what has no transport stream.
std::shared_ptr<Multiplex> GStreamerEngine::multiplexOf(const Source& source) {
    const std::string scheme = ov::orveltools::uri::LtUri(source.isChannel ? source.transport : source.uri).getScheme();
    if (!source.isChannel) {
        if (scheme == ov::orveltools::uri::Scheme::Rtp) return std::make_shared<Multiplex>(source.uri);
        if (!source.isRecording) return nullptr;
        const std::string path = services::localPathOf(source.uri);
        return isTransportStream(path) ? std::make_shared<Multiplex>("file://" + path, Multiplex::AtEnd::isOver)
                                       : nullptr;
    }
    if (scheme == "test") return nullptr;
    if (const auto tuner = tunerOf(source.transport)) return lingering_ = tuners_[*tuner].multiplex.lock();
    lingering_.reset(); // it may have the last tuner
    for (Tuner& tuner : tuners_) {
        if (!tuner.multiplex.expired()) continue;
        lingering_ = std::make_shared<Multiplex>(source.transport);
        tuner = {source.transport, lingering_};
        return lingering_;
    }
    std::string others;
    for (const Tuner& tuner : tuners_) others += (others.empty() ? "" : ", ") + tuner.transport;
    throw Conflict("no tuner is free: " + others);
}

// The tuner that receives a transport stream.
std::optional<std::uint32_t> GStreamerEngine::tunerOf(const std::string& transport) const {
    for (std::size_t i = 0; i < tuners_.size(); ++i)
        if (tuners_[i].transport == transport && !tuners_[i].multiplex.expired()) return static_cast<std::uint32_t>(i);
    return std::nullopt;
}

std::vector<std::uint32_t> GStreamerEngine::usedTuners() const {
    return call([&] {
        std::vector<std::uint32_t> used;
        for (std::size_t i = 0; i < tuners_.size(); ++i)
            if (!tuners_[i].multiplex.expired()) used.push_back(static_cast<std::uint32_t>(i));
        return used;
    });
}

gboolean GStreamerEngine::releaseUnused(void* self) {
    auto& engine = *static_cast<GStreamerEngine*>(self);
    engine.screen_->releaseUnused();
    const bool lingers = engine.lingering_.use_count() == 1;
    if (lingers && engine.hasLingered_) engine.lingering_.reset();
    engine.hasLingered_ = lingers;
    // Nothing is shown any more: this also frees what the C library keeps between blocks in use.
    if (engine.shown_.empty() && !engine.lingering_ &&
        std::exchange(engine.trimmed_, engine.lastNumber_) != engine.lastNumber_)
        malloc_trim(0);
    return G_SOURCE_CONTINUE;
}

Playback* GStreamerEngine::find(const Terminal& terminal) const {
    const auto number = numbers_.find(terminal);
    if (number == numbers_.end()) return nullptr;
    const auto shown = shown_.find(number->second);
    return shown == shown_.end() ? nullptr : shown->second.playback.get();
}

std::int32_t GStreamerEngine::choose(const Terminal& terminal, TrackKind kind, std::int32_t number) {
    return call([&] {
        Playback* const playback = find(terminal);
        return playback ? playback->choose(kind, number) : result::nothingShown;
    });
}

Tracks GStreamerEngine::tracks(const Terminal& terminal) const {
    return call([&] {
        const Playback* const playback = find(terminal);
        return playback ? playback->tracks(terminal) : noTracks(terminal);
    });
}

// Not known before a tuner receives it.
Program GStreamerEngine::programOf(const Source& channel) const {
    const auto tuner = tunerOf(channel.transport);
    const auto multiplex = tuner ? tuners_[*tuner].multiplex.lock() : nullptr;
    return multiplex ? multiplex->program(static_cast<std::uint16_t>(channel.program)) : Program{};
}

StreamCounts GStreamerEngine::streamCounts(const Source& channel) const {
    const Program program = call([&] { return programOf(channel); });
    StreamCounts counts{.known = program.isKnown};
    for (const Stream& stream : program.streams) {
        counts.video += stream.kind == Stream::Kind::video;
        counts.audio += stream.kind == Stream::Kind::audio;
        counts.subtitle += stream.kind == Stream::Kind::subtitle;
        counts.teletext += stream.kind == Stream::Kind::teletext;
    }
    return counts;
}

std::optional<std::int32_t> GStreamerEngine::rating(const Source& channel) const {
    return call([&] { return programOf(channel).rating; });
}

tvservice::TvServiceTunerStatusMessage_t GStreamerEngine::tuning(const Terminal& terminal,
                                                                 const Source& channel) const {
    tvservice::TvServiceTunerStatusMessage_t message;
    message.byteParam1 = tvservice::tunerState::tuning;
    message.intParam1 = static_cast<std::int32_t>(call([&] {
        if (const auto tuner = tunerOf(channel.transport)) return *tuner;
        std::uint32_t unused = 0; // the one that will receive it
        while (unused + 1 < tuners_.size() && !tuners_[unused].multiplex.expired()) ++unused;
        return unused;
    }));
    message.terminal = {terminal.type, terminal.id};
    message.intParam4 = serviceIdOf(channel.uri).stream;
    return message;
}

tvservice::TvServiceTunerResult_t GStreamerEngine::signal(const Terminal& terminal) const {
    tvservice::TvServiceTunerResult_t message;
    message.terminal = {terminal.type, terminal.id};
    constexpr std::int32_t full = 100; // of a test picture
    call([&] {
        const auto number = numbers_.find(terminal);
        const auto shown = number == numbers_.end() ? shown_.end() : shown_.find(number->second);
        if (shown == shown_.end()) return;
        const auto tuner = tunerOf(shown->second.source.transport);
        const auto multiplex = tuner ? tuners_[*tuner].multiplex.lock() : nullptr;
        const Multiplex::Signal signal = multiplex ? multiplex->signal() : Multiplex::Signal{true, full, full};
        message.byteParam1 = signal.present ? tvservice::signalState::present : tvservice::signalState::none;
        message.intParam1 = static_cast<std::int32_t>(tuner.value_or(0));
        message.intParam2 = signal.strength;
        message.intParam3 = signal.quality;
    });
    return message;
}

std::string GStreamerEngine::snapshot(const Terminal& terminal) const {
    return call([&] {
        const Playback* const playback = find(terminal);
        if (!playback) throw Error("the terminal shows nothing");
        return playback->snapshot();
    });
}

Sound GStreamerEngine::sound(const Terminal& terminal) const {
    return call([&] {
        const Playback* const playback = find(terminal);
        if (!playback) throw Error("the terminal shows nothing");
        return playback->sound();
    });
}

} // namespace media

const char* tvsaMediaEngineVersion() { return media::engineVersion; }

media::Engine* tvsaMediaEngine() {
    // Pictures come and go on many threads, and the C library keeps freed memory for each arena of them. Returning
    // pictures to the system at once would cost a fifth more processor time.
    constexpr int mostArenas = 2;
    mallopt(M_ARENA_MAX, mostArenas);
    const media::BlockedSignals blocked; // the leak tracer starts a thread
    GError* problem = nullptr;
    if (!gst_init_check(nullptr, nullptr, &problem)) {
        const media::Owner<GError> owned(problem);
        throw media::Error(std::string("GStreamer cannot start: ") + (problem ? problem->message : ""));
    }
    return new media::GStreamerEngine;
}
