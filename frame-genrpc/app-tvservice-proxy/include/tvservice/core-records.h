// The records of the play path: terminal, play or stop request, answer. tvservice/meanings.h has the meaning of each
// field.
#pragma once

#include <genrpc/record.h>

namespace tvservice {

// A display terminal: a window or an output, identified by the pair (type, id).
#define TVSERVICE_TERMINAL_FIELDS(FIELD) \
    FIELD(std::int32_t, type)            \
    FIELD(std::int32_t, id)

// A request with this uri asks a service to stop what the terminal shows.
inline constexpr const char* stopUri = "rec://plain/null";

// One play or stop request.
#define TVSERVICE_REQ_FIELDS(FIELD)               \
    FIELD(TvServiceTerminal_t, terminal)          \
    FIELD(std::int32_t, intParam1)                \
    FIELD(std::int32_t, intParam2)                \
    FIELD(std::int32_t, intParam3)                \
    FIELD(std::string, uri)                       \
    FIELD(std::string, strParam1)                 \
    FIELD(std::string, uuid)                      \
    FIELD(std::string, strParam2)                 \
    FIELD(std::vector<std::string>, strParamList) \
    FIELD(std::string, reqId)                     \
    FIELD(std::string, strParam3)                 \
    FIELD(std::string, strParam4)                 \
    FIELD(std::int32_t, intParam4)

// The answer for one terminal.
#define TVSERVICE_INFO_FIELDS(FIELD)     \
    FIELD(TvServiceTerminal_t, terminal) \
    FIELD(std::int32_t, result)          \
    FIELD(std::string, uri)              \
    FIELD(std::string, uuid)             \
    FIELD(std::string, uuidAncestor)     \
    FIELD(std::string, reqId)

#define TVSERVICE_CORE_RECORDS(RECORD)                               \
    RECORD(Terminal, TvServiceTerminal_t, TVSERVICE_TERMINAL_FIELDS) \
    RECORD(Core, TvServiceReq_t, TVSERVICE_REQ_FIELDS)               \
    RECORD(Core, TvServiceInfo_t, TVSERVICE_INFO_FIELDS)
TVSERVICE_CORE_RECORDS(GENRPC_RECORD)

} // namespace tvservice
