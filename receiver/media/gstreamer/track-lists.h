// The tracks of a channel, as the service's clients know them.
#pragma once

#include "tables.h"

#include <array>
#include <cstdint>
#include <media/engine.h>
#include <string>

namespace media {

inline constexpr std::array trackKinds{TrackKind::audio, TrackKind::subtitle, TrackKind::video, TrackKind::teletext};

// The numbers of the chosen tracks, by kind; 0: none. By default picture and sound, but no text.
class ChosenTracks {
public:
    std::int32_t& operator[](TrackKind kind) { return numbers_[static_cast<std::size_t>(kind)]; }
    std::int32_t operator[](TrackKind kind) const { return numbers_[static_cast<std::size_t>(kind)]; }

private:
    std::array<std::int32_t, trackKinds.size()> numbers_{1, 0, 1, 0};
};

// What decoders make of the chosen streams; 0: not known.
struct PictureFormat {
    std::int32_t width = 0, height = 0, perSecond = 0;
};
struct SoundFormat {
    std::int32_t channels = 0, rate = 0; // samples a second
};

// Tracks are numbered from 1, in the order of the program's table. Null for other numbers.
const Stream* streamOf(const Program& program, TrackKind kind, std::int32_t number);

Tracks tracksOf(const Terminal& terminal, const Program& program, const ChosenTracks& chosen,
                const PictureFormat& picture, const SoundFormat& sound, const std::string& uri);
Tracks noTracks(const Terminal& terminal);

} // namespace media
