// A marker is a request to the TV service for a number that no channel has. Its answer comes after all earlier
// messages.
#pragma once

namespace exchange {

constexpr int firstMarker = 1'000'000'000; // numbers from here on are only used for markers

} // namespace exchange
