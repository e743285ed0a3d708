// The messages of the MM service. It numbers them from the same start as the TV service; the connection tells the two
// services apart.
#pragma once

#include <genrpc/message.h>
#include <mmservice/records.h>

namespace mmservice {

#define MMSERVICE_MESSAGES(MESSAGE)                                                    \
    MESSAGE(mmservice, Request, MmServiceReq, 0x28671236, std::vector<MMServiceReq_t>) \
    MESSAGE(mmservice, Notification, MmServiceInfo, 0x28671237, std::vector<MMServiceInfo_t>)

MMSERVICE_MESSAGES(GENRPC_MESSAGE)

inline constexpr const char* serviceName = "mmservice";
frame::MessageSet messageSet();

} // namespace mmservice
