#include <mmservice/records.h>

namespace mmservice {

MMSERVICE_RECORDS(GENRPC_RECORD_TABLE)

} // namespace mmservice
