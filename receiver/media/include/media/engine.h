// What shows pictures and plays sound behind a service.
//
// A service decides what a terminal may show and answers its clients; an engine opens sources, decodes them and knows
// their tracks. docs/media.md tells how to write another one.
#pragma once

#include <tvservice-adapter/service/result.h>
#include <tvservice-adapter/service/terminal.h>
#include <tvservice/status-records.h>
#include <tvservice/stream-records.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace media {

using services::Terminal;
namespace result = services::result;

// Something that a terminal can show.
struct Source {
    std::string uri;            // of the request; of a local file, also with the scheme fsl2
    bool isChannel = false;     // a broadcast: it has a tuner, and tracks that requests choose
    std::string transport = {}; // URI of a channel's source; empty: the channel list does not say
    std::int32_t program = 0;   // of the channel in its transport stream
    bool isRecording = false;   // a local file with a broadcast: it has tracks, too, and an end
    bool operator==(const Source&) const = default;
};

// What became of an attempt to show a source.
struct Outcome {
    std::int32_t result = result::done; // superseded: closed, or replaced by another source, before it was shown
    std::string reason = {};            // of a failure, for the log
};

// What a terminal offers to choose from, and what is chosen. Each record names the terminal; result and echo are left
// to the service. Without a channel there are no streams.
struct Tracks {
    tvservice::TvServiceAudioInfo_t audio;
    tvservice::TvServiceSubtitleInfo_t subtitle;
    tvservice::TvServiceVideoInfo_t video;
    tvservice::TvServiceTeletextInfo_t teletext;
};

enum class TrackKind { audio, subtitle, video, teletext };

// How many streams a channel has. Unknown: the engine has not received it yet.
struct StreamCounts {
    bool known = false;
    std::size_t video = 0, audio = 0, subtitle = 0, teletext = 0;
};

// What is heard on a terminal.
struct Sound {
    double level = 0;       // root mean square in dB, 0 for a square wave at full scale; -100 for silence
    std::int32_t pitch = 0; // frequency of the loudest tone in Hz; 0 for silence
};

// A question that has no answer: what() says why, for people.
struct Error : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// What happens to a source after open. Called one at a time, on the caller's thread of open or on one of the engine's.
struct Events {
    // Called once, with what became of the open: when the first picture (or, without pictures, the first sound) is
    // decoded, or when the failure is certain.
    std::function<void(const Outcome&)> opened;
    // Called at most once, after it was shown: the source is at its end (result::done), or broke off. The terminal is
    // dark. Not called after close, or when another source has replaced it.
    std::function<void(const Outcome&)> over;
    // Between opened and over: the tracks of a channel have changed; its signal has gone or come back.
    std::function<void()> tracks = [] {};
    std::function<void()> signal = [] {};
};

// Calls are made from one thread at a time, except where said. None waits for a source.
class Engine {
public:
    virtual ~Engine() = default;

    virtual const char* name() const = 0;

    // Closes everything. No event comes afterwards.
    virtual void shutDown() = 0;

    // Shows a source on a terminal in place of what it shows. After a failure the terminal is dark.
    virtual void open(const Terminal& terminal, const Source& source, Events events) = 0;
    virtual void close(const Terminal& terminal) = 0; // no effect when the terminal shows nothing
    virtual void swap(const Terminal& a, const Terminal& b) = 0;

    // Chooses a track; 0: none. Returns result::done, or why nothing has changed.
    virtual std::int32_t choose(const Terminal& terminal, TrackKind kind, std::int32_t number) = 0;
    virtual Tracks tracks(const Terminal& terminal) const = 0; // from any thread
    // Why a channel's source of this URI can never be received, for people; empty: it may be.
    virtual std::string problemOf(const std::string& /*transport*/) const { return {}; }
    virtual StreamCounts streamCounts(const Source& channel) const = 0;
    // The least age for what a channel broadcasts now, 0 for everyone; nothing when the broadcast is not received or
    // does not say. From any thread.
    virtual std::optional<std::int32_t> rating(const Source& channel) const = 0;

    // What the tuner reports when it begins to tune to a channel, and once the channel is shown. From any thread.
    virtual tvservice::TvServiceTunerStatusMessage_t tuning(const Terminal& terminal, const Source& channel) const = 0;
    virtual tvservice::TvServiceTunerResult_t signal(const Terminal& terminal) const = 0;
    // The numbers of the tuners that terminals use. From any thread.
    virtual std::vector<std::uint32_t> usedTuners() const = 0;

    // The picture on a terminal as PNG. Throws Error when it shows none. From any thread.
    virtual std::string snapshot(const Terminal& terminal) const = 0;
    // From any thread. Throws Error when the terminal shows nothing.
    virtual Sound sound(const Terminal& terminal) const = 0;
};

} // namespace media
