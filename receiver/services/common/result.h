// What a service's answer says became of a request.
#pragma once

#include <cstdint>

namespace services::result {

inline constexpr std::int32_t done = 0; // shown or stopped
// 1 means that a newer request for the terminal is queued; the services answer every request, so they never say it.
inline constexpr std::int32_t unknownChannel = 2;
inline constexpr std::int32_t cannotOpenFile = 3;
inline constexpr std::int32_t unsupportedUri = 4;
inline constexpr std::int32_t wrongByFault = 5; // said by the fault switch "wrong"
inline constexpr std::int32_t locked = 6;       // the terminal is locked against minors
inline constexpr std::int32_t unknownTrack = 7; // what the terminal shows has no such track
// To a request for a track: the terminal shows no broadcast, hence has no tracks. To a play: the service, or the client
// that asked, has as many terminals or as much text as fits (bounds.h); what the terminal shows already stays.
inline constexpr std::int32_t nothingShown = 8;

} // namespace services::result
