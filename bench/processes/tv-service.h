// The TV service for the product's cases. It answers every play request at once, and sends notifications on command.
#pragma once

#include <functional>

namespace bench {

// Offers both services at their endpoints and serves forever; the MM service has only a channel. Answers a play request
// to its sender alone. After a request for key "N" it sends N tuner results to the requester, and after one for key
// "N SIZE" it sends N infos with a text of SIZE bytes.
[[noreturn]] void serveTvService(const std::function<void()>& ready);

} // namespace bench
