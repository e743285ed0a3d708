// The chosen tracks of the channels on the terminals. For one thread at a time.
#pragma once

#include "streams.h"

#include <tvservice-adapter/service/swap-keys.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <media/engine.h>
#include <string>
#include <type_traits>

namespace media {

// The chosen tracks. By default, when a terminal begins to show a channel: picture and sound, but no text.
struct ChosenTracks {
    std::int32_t audio = 1;
    std::int32_t subtitle = 0;
    std::int32_t video = 1;
    std::int32_t teletext = 0;

    std::int32_t& of(const tvservice::TvServiceAudioInfo_t*) { return audio; }
    std::int32_t& of(const tvservice::TvServiceSubtitleInfo_t*) { return subtitle; }
    std::int32_t& of(const tvservice::TvServiceVideoInfo_t*) { return video; }
    std::int32_t& of(const tvservice::TvServiceTeletextInfo_t*) { return teletext; }
};

class TrackTable {
public:
    void tune(const Terminal& terminal, const std::string& channel) { tuned_[terminal] = {channel, {}}; }
    void forget(const Terminal& terminal) { tuned_.erase(terminal); }
    void swap(const Terminal& a, const Terminal& b) { services::swapKeys(tuned_, a, b); }

    // Chooses a track of the kind in Info. Returns result::done, or why nothing has changed.
    template <class Info> std::int32_t choose(const Terminal& terminal, std::int32_t number);

    // The streams of a terminal; empty when it shows no channel.
    template <class Info>
    Info info(const Terminal& terminal, std::int32_t result = result::done, std::int32_t echo = 0) const;

private:
    template <class Info> using StreamOf = typename decltype(Info::streams)::value_type;
    struct Tuned {
        std::string channel;
        ChosenTracks chosen;
    };

    std::map<Terminal, Tuned> tuned_; // bounded: the service's table of terminals has all of these
};

template <class Info> std::int32_t TrackTable::choose(const Terminal& terminal, std::int32_t number) {
    const auto tuned = tuned_.find(terminal);
    if (tuned == tuned_.end()) return result::nothingShown;
    const auto streams = streamsOf<StreamOf<Info>>(tuned->second.channel);
    const auto isAsked = [number](const auto& stream) { return stream.intParam1 == number; };
    if (number != 0 && std::none_of(streams.begin(), streams.end(), isAsked)) return result::unknownTrack;
    tuned->second.chosen.of(static_cast<const Info*>(nullptr)) = number;
    return result::done;
}

template <class Info> Info TrackTable::info(const Terminal& terminal, std::int32_t result, std::int32_t echo) const {
    Info info;
    info.terminal = {terminal.type, terminal.id};
    info.intParam2 = result;
    if constexpr (!std::is_same_v<Info, tvservice::TvServiceTeletextInfo_t>) info.intParam3 = echo;
    const auto tuned = tuned_.find(terminal);
    if (tuned == tuned_.end()) return info;
    ChosenTracks chosen = tuned->second.chosen;
    info.intParam1 = chosen.of(&info);
    info.streams = streamsOf<StreamOf<Info>>(tuned->second.channel);
    for (auto& stream : info.streams) {
        if (stream.intParam1 != info.intParam1) continue;
        if constexpr (requires { stream.flagParam1; }) stream.flagParam1 = true;
        if constexpr (std::is_same_v<Info, tvservice::TvServiceVideoInfo_t>) {
            info.intParam4 = stream.shortParam3;
            info.intParam5 = stream.shortParam4;
        }
    }
    return info;
}

} // namespace media
