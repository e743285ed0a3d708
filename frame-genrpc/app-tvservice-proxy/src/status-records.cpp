#include <tvservice/status-records.h>

namespace tvservice {

TVSERVICE_STATUS_RECORDS(GENRPC_RECORD_TABLE)

} // namespace tvservice
