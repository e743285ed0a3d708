// The messages of the MM service as types: messages::MmServiceReq and messages::MmServiceInfo.
#pragma once

#include <genrpc/message.h>
#include <mmservice/message-list.h>

namespace mmservice {

MMSERVICE_MESSAGES(GENRPC_MESSAGE)

inline constexpr const char* serviceName = "mmservice";
frame::MessageSet messageSet();

} // namespace mmservice
