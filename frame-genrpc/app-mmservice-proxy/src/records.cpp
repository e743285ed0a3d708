#include <mmservice/records.h>

namespace mmservice {

GENRPC_RECORD_TABLE(MMServiceTerminal_t)
GENRPC_RECORD_TABLE(MMServiceReq_t)
GENRPC_RECORD_TABLE(MMServiceInfo_t)

} // namespace mmservice
