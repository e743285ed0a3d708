#include <tvservice/stream-records.h>

namespace tvservice {

TVSERVICE_STREAM_RECORDS(GENRPC_RECORD_TABLE)

} // namespace tvservice
