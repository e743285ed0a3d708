#include "gstreamer-engine.h"

#include "element.h"

#include <tvservice-adapter/service/swap-keys.h>
#include <tvservice/values.h>

#include <csignal>
#include <future>
#include <media/plugin.h>
#include <media/service-id.h>
#include <stdexcept>
#include <utility>

namespace media {
namespace {

constexpr guint longestLingering = 10; // seconds

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

} // namespace

void GStreamerEngine::post(std::function<void()> work) const {
    GSource* const source = g_idle_source_new();
    g_source_set_priority(source, G_PRIORITY_DEFAULT);
    g_source_set_callback(
        source,
        [](void* context) {
            (*static_cast<std::function<void()>*>(context))();
            return G_SOURCE_REMOVE;
        },
        new std::function<void()>(std::move(work)),
        [](void* context) { delete static_cast<std::function<void()>*>(context); });
    g_source_attach(source, context_);
    g_source_unref(source);
}

template <class Work> auto GStreamerEngine::call(Work work) const {
    if (std::this_thread::get_id() == thread_.get_id() || !thread_.joinable()) return work();
    std::packaged_task<decltype(work())()> task(std::move(work));
    auto result = task.get_future();
    post([&task] { task(); });
    return result.get();
}

GStreamerEngine::GStreamerEngine() : context_(g_main_context_new()), loop_(g_main_loop_new(context_, FALSE)) {
    const BlockedSignals blocked; // all threads of the pipelines inherit this
    thread_ = std::thread([this] {
        pthread_setname_np(pthread_self(), "media");
        g_main_context_push_thread_default(context_);
        const Owner<GSource> timer(g_timeout_source_new_seconds(longestLingering));
        g_source_set_callback(timer.get(), releaseLingering, this, nullptr);
        g_source_attach(timer.get(), context_);
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
        shown_.clear();
        numbers_.clear();
        lingering_.reset();
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
    try {
        const auto postIfOpen = [this, number](std::function<void()> work) {
            post([this, number, work = std::move(work)] {
                if (shown_.contains(number)) work();
            });
        };
        shown.playback = std::make_unique<Playback>(
            source, source.isChannel ? multiplexOf(source.transport) : nullptr, context_, postIfOpen,
            Playback::Events{.shown = [this, number] { opened(number); },
                             .over = [this, number](const Outcome& outcome) { over(number, outcome); }});
    } catch (const MissingElement& error) {
        over(number, {result::codecMissing, error.what()});
    } catch (const Error& error) {
        over(number, {result::unsupportedUri, error.what()});
    }
}

void GStreamerEngine::opened(std::uint64_t number) {
    const auto shown = shown_.find(number);
    if (shown == shown_.end()) return;
    if (const auto tell = std::exchange(shown->second.events.opened, {})) tell({});
}

void GStreamerEngine::over(std::uint64_t number, const Outcome& outcome) {
    const auto shown = shown_.find(number);
    if (shown == shown_.end()) return;
    const Events events = std::exchange(shown->second.events, {});
    std::erase_if(numbers_, [number](const auto& entry) { return entry.second == number; });
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
    if (shown && shown.mapped().events.opened) shown.mapped().events.opened({result::superseded, {}});
}

void GStreamerEngine::swap(const Terminal& a, const Terminal& b) {
    call([&] { services::swapKeys(numbers_, a, b); });
}

std::shared_ptr<Multiplex> GStreamerEngine::multiplexOf(const std::string& transport) {
    std::erase_if(multiplexes_, [](const auto& entry) { return entry.second.expired(); });
    auto multiplex = multiplexes_[transport].lock();
    if (!multiplex) {
        multiplex = std::make_shared<Multiplex>(transport);
        multiplexes_[transport] = multiplex;
    }
    lingering_ = multiplex;
    return multiplex;
}

gboolean GStreamerEngine::releaseLingering(void* self) {
    auto& engine = *static_cast<GStreamerEngine*>(self);
    if (engine.lingering_.use_count() == 1) engine.lingering_.reset();
    return G_SOURCE_CONTINUE;
}

const Playback* GStreamerEngine::find(const Terminal& terminal) const {
    const auto number = numbers_.find(terminal);
    if (number == numbers_.end()) return nullptr;
    const auto shown = shown_.find(number->second);
    return shown == shown_.end() ? nullptr : shown->second.playback.get();
}

std::int32_t GStreamerEngine::choose(const Terminal& terminal, TrackKind kind, std::int32_t number) {
    return call([&] {
        auto* const playback = const_cast<Playback*>(find(terminal));
        return playback ? playback->choose(kind, number) : result::nothingShown;
    });
}

Tracks GStreamerEngine::tracks(const Terminal& terminal) const {
    return call([&] {
        if (const Playback* const playback = find(terminal)) return playback->tracks(terminal);
        Tracks none;
        for (auto* const at :
             {&none.audio.terminal, &none.subtitle.terminal, &none.video.terminal, &none.teletext.terminal})
            *at = {terminal.type, terminal.id};
        return none;
    });
}

StreamCounts GStreamerEngine::streamCounts(const Source& channel) const {
    return call([&]() -> StreamCounts {
        const auto received = multiplexes_.find(channel.transport);
        const auto multiplex = received == multiplexes_.end() ? nullptr : received->second.lock();
        if (!multiplex) return {};
        const Program program = multiplex->program(static_cast<std::uint16_t>(channel.program));
        StreamCounts counts{.known = program.isKnown};
        for (const Stream& stream : program.streams) {
            counts.video += stream.kind == Stream::Kind::video;
            counts.audio += stream.kind == Stream::Kind::audio;
            counts.subtitle += stream.kind == Stream::Kind::subtitle;
            counts.teletext += stream.kind == Stream::Kind::teletext;
        }
        return counts;
    });
}

tvservice::TvServiceTunerStatusMessage_t GStreamerEngine::tuning(const Terminal& terminal,
                                                                 const Source& channel) const {
    tvservice::TvServiceTunerStatusMessage_t message;
    message.byteParam1 = tvservice::tunerState::tuning;
    message.intParam1 = terminal.type;
    message.terminal = {terminal.type, terminal.id};
    message.intParam4 = serviceIdOf(channel.uri).stream;
    return message;
}

// A file or the network has no strength; what is shown has been received whole.
tvservice::TvServiceTunerResult_t GStreamerEngine::signal(const Terminal& terminal) const {
    tvservice::TvServiceTunerResult_t message;
    const bool shows = call([&] { return find(terminal) != nullptr; });
    message.byteParam1 = shows ? tvservice::signalState::present : tvservice::signalState::none;
    message.intParam1 = terminal.type;
    message.terminal = {terminal.type, terminal.id};
    message.intParam2 = message.intParam3 = shows ? 100 : 0;
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
    const media::BlockedSignals blocked; // the leak tracer starts a thread
    GError* problem = nullptr;
    if (!gst_init_check(nullptr, nullptr, &problem)) {
        const media::Owner<GError> owned(problem);
        throw media::Error(std::string("GStreamer cannot start: ") + (problem ? problem->message : ""));
    }
    return new media::GStreamerEngine;
}
