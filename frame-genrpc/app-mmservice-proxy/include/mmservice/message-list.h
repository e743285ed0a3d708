// The messages of the MM service, each listed once. Their numbers begin with the same number as those of the TV
// service; the connection distinguishes the two services.
#pragma once

#include <genrpc/arguments.h>
#include <mmservice/records.h>

#define MMSERVICE_REQUESTS(MESSAGE)                                     \
    MESSAGE(mmservice, Request, MmServiceReq, mmServiceReq, 0x28671236, \
            (std::vector<mmservice::MMServiceReq_t>, requests))

#define MMSERVICE_NOTIFICATIONS(MESSAGE)                                       \
    MESSAGE(mmservice, Notification, MmServiceInfo, mmServiceInfo, 0x28671237, \
            (std::vector<mmservice::MMServiceInfo_t>, infos))

#define MMSERVICE_MESSAGES(MESSAGE) MMSERVICE_REQUESTS(MESSAGE) MMSERVICE_NOTIFICATIONS(MESSAGE)
