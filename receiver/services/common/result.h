// The results in a service's answers.
#pragma once

#include <cstdint>

namespace services::result {

inline constexpr std::int32_t done = 0; // shown or stopped
// 1 means that a newer request for the terminal is queued; the services answer every request, so they never send it.
inline constexpr std::int32_t unknownChannel = 2;
inline constexpr std::int32_t cannotOpenFile = 3;
inline constexpr std::int32_t unsupportedUri = 4;
inline constexpr std::int32_t wrongByFault = 5; // set by the fault switch "wrong"
inline constexpr std::int32_t locked = 6;       // the terminal is locked against minors
inline constexpr std::int32_t unknownTrack = 7; // what the terminal shows has no such track
// For a track request: the terminal shows no broadcast, so it has no tracks. For a play: the service or the requesting
// client has reached its limit of terminals or text (bounds.h); the terminal keeps what it shows.
inline constexpr std::int32_t nothingShown = 8;

} // namespace services::result
