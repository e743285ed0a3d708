#include <tvservice/core-records.h>

namespace tvservice {

TVSERVICE_CORE_RECORDS(GENRPC_RECORD_TABLE)

} // namespace tvservice
