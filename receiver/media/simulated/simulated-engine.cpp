#include "simulated-engine.h"

#include <tvservice/values.h>

#include <media/service-id.h>

namespace media {

void SimulatedEngine::open(const Terminal& terminal, const Source& source, Events events) {
    {
        const thread_safety::LockGuard lock(mutex_);
        if (source.isChannel)
            tracks_.tune(terminal, source.uri);
        else
            tracks_.forget(terminal);
    }
    events.opened({});
}

void SimulatedEngine::close(const Terminal& terminal) {
    const thread_safety::LockGuard lock(mutex_);
    tracks_.forget(terminal);
}

void SimulatedEngine::swap(const Terminal& a, const Terminal& b) {
    const thread_safety::LockGuard lock(mutex_);
    tracks_.swap(a, b);
}

std::int32_t SimulatedEngine::choose(const Terminal& terminal, TrackKind kind, std::int32_t number) {
    const thread_safety::LockGuard lock(mutex_);
    switch (kind) {
        case TrackKind::audio:
            return tracks_.choose<tvservice::TvServiceAudioInfo_t>(terminal, number);
        case TrackKind::subtitle:
            return tracks_.choose<tvservice::TvServiceSubtitleInfo_t>(terminal, number);
        case TrackKind::video:
            return tracks_.choose<tvservice::TvServiceVideoInfo_t>(terminal, number);
        case TrackKind::teletext:
            return tracks_.choose<tvservice::TvServiceTeletextInfo_t>(terminal, number);
    }
    return result::unknownTrack;
}

Tracks SimulatedEngine::tracks(const Terminal& terminal) const {
    const thread_safety::LockGuard lock(mutex_);
    return {tracks_.info<tvservice::TvServiceAudioInfo_t>(terminal),
            tracks_.info<tvservice::TvServiceSubtitleInfo_t>(terminal),
            tracks_.info<tvservice::TvServiceVideoInfo_t>(terminal),
            tracks_.info<tvservice::TvServiceTeletextInfo_t>(terminal)};
}

StreamCounts SimulatedEngine::streamCounts(const Source& channel) const {
    return {true, streamsOf<tvservice::VideoStreamInfo_t>(channel.uri).size(),
            streamsOf<tvservice::AudioStreamInfo_t>(channel.uri).size(),
            streamsOf<tvservice::SubtitleStreamInfo_t>(channel.uri).size(),
            streamsOf<tvservice::TeletextStreamInfo_t>(channel.uri).size()};
}

// Each type of terminal has its own tuner.
tvservice::TvServiceTunerStatusMessage_t SimulatedEngine::tuning(const Terminal& terminal,
                                                                 const Source& channel) const {
    constexpr std::int32_t firstFrequency = 474000, channelSpacing = 8000, symbolRate = 6875, channelCount = 48;
    tvservice::TvServiceTunerStatusMessage_t message;
    message.byteParam1 = tvservice::tunerState::tuning;
    message.intParam1 = terminal.type;
    message.terminal = {terminal.type, terminal.id};
    message.intParam4 = serviceIdOf(channel.uri).stream;
    message.intParam2 = firstFrequency + channelSpacing * (message.intParam4 % channelCount);
    message.intParam3 = symbolRate;
    return message;
}

tvservice::TvServiceTunerResult_t SimulatedEngine::signal(const Terminal& terminal) const {
    tvservice::TvServiceTunerResult_t message;
    message.byteParam1 = tvservice::signalState::present;
    message.intParam1 = terminal.type;
    message.terminal = {terminal.type, terminal.id};
    message.intParam2 = 78;
    message.intParam3 = 96;
    return message;
}

std::string SimulatedEngine::snapshot(const Terminal&) const {
    throw Error("the simulated engine has no pictures; set media.engine to gstreamer");
}

Sound SimulatedEngine::sound(const Terminal&) const {
    throw Error("the simulated engine has no sound; set media.engine to gstreamer");
}

} // namespace media
