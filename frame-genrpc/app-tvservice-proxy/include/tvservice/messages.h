// The messages of the TV service, each named once: name, direction, id, arguments.
#pragma once

#include <genrpc/message.h>
#include <tvservice/core-records.h>

namespace tvservice {

#define TVSERVICE_MESSAGES(MESSAGE)                                                    \
    MESSAGE(tvservice, Request, TvServiceReq, 0x28671236, std::vector<TvServiceReq_t>) \
    MESSAGE(tvservice, Notification, TvServiceInfo, 0x28671247, std::vector<TvServiceInfo_t>)

TVSERVICE_MESSAGES(GENRPC_MESSAGE)

// What both sides of a connection must agree on.
inline constexpr const char* serviceName = "tvservice";
frame::MessageSet messageSet();

} // namespace tvservice
