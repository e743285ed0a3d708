// The MM service's records: those of the TV service without the fields that only the TV service uses.
#pragma once

#include <genrpc/record.h>

namespace mmservice {

#define MMSERVICE_TERMINAL_FIELDS(FIELD) \
    FIELD(std::int32_t, type)            \
    FIELD(std::int32_t, id)

#define MMSERVICE_REQ_FIELDS(FIELD)               \
    FIELD(MMServiceTerminal_t, terminal)          \
    FIELD(std::int32_t, intParam1)                \
    FIELD(std::int32_t, intParam2)                \
    FIELD(std::int32_t, intParam3)                \
    FIELD(std::string, uri)                       \
    FIELD(std::string, uuid)                      \
    FIELD(std::string, strParam2)                 \
    FIELD(std::vector<std::string>, strParamList) \
    FIELD(std::string, reqId)                     \
    FIELD(std::string, strParam3)

#define MMSERVICE_INFO_FIELDS(FIELD)     \
    FIELD(MMServiceTerminal_t, terminal) \
    FIELD(std::int32_t, result)          \
    FIELD(std::string, uri)              \
    FIELD(std::string, uuid)             \
    FIELD(std::string, uuidAncestor)     \
    FIELD(std::string, reqId)

#define MMSERVICE_RECORDS(RECORD)                                    \
    RECORD(Terminal, MMServiceTerminal_t, MMSERVICE_TERMINAL_FIELDS) \
    RECORD(Core, MMServiceReq_t, MMSERVICE_REQ_FIELDS)               \
    RECORD(Core, MMServiceInfo_t, MMSERVICE_INFO_FIELDS)
MMSERVICE_RECORDS(GENRPC_RECORD)

} // namespace mmservice
