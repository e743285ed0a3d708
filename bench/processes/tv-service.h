// The TV service that the product's cases talk to: answers every play request at once, and tells small news on command.
#pragma once

#include <functional>

namespace bench {

// Offers both services at their endpoints and serves for ever; of the MM service there is only the channel. A play
// request is answered to its sender alone. A request for key N (text) is followed by N tuner results to its sender, one
// for key "N SIZE" by N infos with a text of SIZE bytes.
[[noreturn]] void serveTvService(const std::function<void()>& ready);

} // namespace bench
