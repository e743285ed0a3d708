// What every field of the MM service's records means: the same as in the TV service's records.
#pragma once

#include <genrpc/meanings.h>
#include <mmservice/messages.h>
#include <tvservice/meanings.h>

namespace mmservice {

consteval auto meaningsOf(std::type_identity<MMServiceTerminal_t>) {
    return genrpc::meaningsLike<MMServiceTerminal_t, tvservice::TvServiceTerminal_t>();
}
consteval auto meaningsOf(std::type_identity<MMServiceReq_t>) {
    return genrpc::meaningsLike<MMServiceReq_t, tvservice::TvServiceReq_t>();
}
consteval auto meaningsOf(std::type_identity<MMServiceInfo_t>) {
    return genrpc::meaningsLike<MMServiceInfo_t, tvservice::TvServiceInfo_t>();
}

MMSERVICE_RECORDS(GENRPC_CHECK_RECORD_MEANINGS)
MMSERVICE_MESSAGES(GENRPC_CHECK_MESSAGE_MEANINGS)

} // namespace mmservice
