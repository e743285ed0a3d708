#include <tvservice/core-records.h>

namespace tvservice {

GENRPC_RECORD_TABLE(TvServiceTerminal_t)
GENRPC_RECORD_TABLE(TvServiceReq_t)
GENRPC_RECORD_TABLE(TvServiceInfo_t)

} // namespace tvservice
