// Converts between the TV service's records, which the resource manager uses, and the MM service's.
#pragma once

#include <mmservice/records.h>
#include <tvservice/core-records.h>

#include <vector>

namespace tvservice {

// Makes output exactly as long as input, each record with the input's fields of the same name. The fields that the MM
// service does not know (strParam1, strParam4, intParam4) are left out.
void convertTvtoMm(const std::vector<TvServiceReq_t>& input, std::vector<mmservice::MMServiceReq_t>& output);
void convertMmtoTv(const std::vector<mmservice::MMServiceInfo_t>& input, std::vector<TvServiceInfo_t>& output);

} // namespace tvservice
