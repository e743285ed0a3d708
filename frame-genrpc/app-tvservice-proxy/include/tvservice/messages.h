// The messages of the TV service as types: messages::TvServiceAudioReq and so on (see genrpc/message.h).
#pragma once

#include <genrpc/message.h>
#include <tvservice/message-list.h>

namespace tvservice {

TVSERVICE_MESSAGES(GENRPC_MESSAGE)

// Both sides of a connection must agree on these.
inline constexpr const char* serviceName = "tvservice";
frame::MessageSet messageSet();

} // namespace tvservice
