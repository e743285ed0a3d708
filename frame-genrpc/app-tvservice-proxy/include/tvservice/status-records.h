// The records of status and negotiation: services, tuner, network, CI modules, downloads, locks, releases.
//
// Only the TV service and its clients know what most fields mean; here they have a type and a number, in
// tvservice/meanings.h the meaning that they have in the reference service. Forms are packed, so words after a byte
// have odd offsets; bytes are sent unchanged.
#pragma once

#include <genrpc/record.h>
#include <tvservice/core-records.h>

namespace tvservice {

// The service defines these values; all of them are passed on unchanged.
enum TvServiceCasServiceType_t : std::int32_t {}; // of conditional access
enum reqeustOadType_t : std::int32_t {};          // of over-the-air download, requested
enum NotifyOadStatus_t : std::int32_t {};         // of over-the-air download, reported

// The fields of records with one number.
#define TVSERVICE_ONE_INT_FIELDS(FIELD) FIELD(std::int32_t, intParam1)

// The fields of records with a number and a flag.
#define TVSERVICE_INT_AND_BYTE_FIELDS(FIELD) \
    FIELD(std::int32_t, intParam1)           \
    FIELD(std::uint8_t, byteParam1)

#define TVSERVICE_PARENTAL_LOCK_FIELDS(FIELD) \
    FIELD(TvServiceTerminal_t, terminal)      \
    FIELD(std::int32_t, intParam1)            \
    FIELD(std::int32_t, intParam2)

// One entry of the status list.
#define TVSERVICE_SERVICE_STATUS_FIELDS(FIELD) \
    FIELD(std::int32_t, intParam1)             \
    FIELD(std::uint8_t, byteParam1)            \
    FIELD(std::int32_t, intParam2)             \
    FIELD(std::int32_t, intParam3)             \
    FIELD(std::int32_t, intParam4)             \
    FIELD(std::int32_t, intParam5)             \
    FIELD(std::int32_t, intParam6)             \
    FIELD(std::uint16_t, shortParam1)          \
    FIELD(std::string, strParam1)              \
    FIELD(std::uint8_t, byteParam2)

#define TVSERVICE_STATUS_INFO_FIELDS(FIELD) \
    FIELD(std::int32_t, intParam1)          \
    FIELD(std::vector<ServiceStatusInfo_t>, services)

#define TVSERVICE_NETWORK_CHANGE_FIELDS(FIELD) \
    FIELD(std::uint8_t, byteParam1)            \
    FIELD(std::string, strParam1)

#define TVSERVICE_TUNER_RESULT_FIELDS(FIELD) \
    FIELD(std::uint8_t, byteParam1)          \
    FIELD(std::int32_t, intParam1)           \
    FIELD(TvServiceTerminal_t, terminal)     \
    FIELD(std::int32_t, intParam2)           \
    FIELD(std::int32_t, intParam3)

#define TVSERVICE_TUNER_STATUS_FIELDS(FIELD) \
    FIELD(std::uint8_t, byteParam1)          \
    FIELD(std::int32_t, intParam1)           \
    FIELD(TvServiceTerminal_t, terminal)     \
    FIELD(std::int32_t, intParam2)           \
    FIELD(std::int32_t, intParam3)           \
    FIELD(std::int32_t, intParam4)

#define TVSERVICE_URI_LINKAGE_FIELDS(FIELD) \
    FIELD(std::uint8_t, byteParam1)         \
    FIELD(std::string, strParam1)           \
    FIELD(std::string, strParam2)

#define TVSERVICE_CI_ANCILLARY_DATA_FIELDS(FIELD) \
    FIELD(std::vector<std::string>, strParamList) \
    FIELD(std::string, strParam1)

#define TVSERVICE_INSTALLED_FIELDS(FIELD) FIELD(std::uint8_t, byteParam1)

#define TVSERVICE_PLAY_INFO_FIELDS(FIELD) FIELD(std::string, strParam1)

// No message contains the last two; they belong to the set that the service defines.
#define TVSERVICE_STATUS_RECORDS(RECORD)                                               \
    RECORD(Status, TvServiceSwapWinReq_t, TVSERVICE_ONE_INT_FIELDS)                    \
    RECORD(Status, TvServiceAskReleaseReq_t, TVSERVICE_ONE_INT_FIELDS)                 \
    RECORD(Status, TvServiceSListChangedInd_t, TVSERVICE_ONE_INT_FIELDS)               \
    RECORD(Status, TvServiceTryRunRequestParams_t, TVSERVICE_ONE_INT_FIELDS)           \
    RECORD(Status, TvServiceParentalLockInfo_t, TVSERVICE_PARENTAL_LOCK_FIELDS)        \
    RECORD(Status, TvServiceSwapWinInfo_t, TVSERVICE_ONE_INT_FIELDS)                   \
    RECORD(Status, TvServiceAskReleaseInfo_t, TVSERVICE_INT_AND_BYTE_FIELDS)           \
    RECORD(Status, TvServiceAskReleaseConf_t, TVSERVICE_INT_AND_BYTE_FIELDS)           \
    RECORD(Status, ServiceStatusInfo_t, TVSERVICE_SERVICE_STATUS_FIELDS)               \
    RECORD(Status, TvServiceStatusInfo_t, TVSERVICE_STATUS_INFO_FIELDS)                \
    RECORD(Status, TvServiceNetworkChangeMessage_t, TVSERVICE_NETWORK_CHANGE_FIELDS)   \
    RECORD(Status, TvServiceTunerResult_t, TVSERVICE_TUNER_RESULT_FIELDS)              \
    RECORD(Status, TvServiceTunerStatusMessage_t, TVSERVICE_TUNER_STATUS_FIELDS)       \
    RECORD(Status, TvServiceUriLinkageInfo_t, TVSERVICE_URI_LINKAGE_FIELDS)            \
    RECORD(Status, TvServiceCiAncillaryDataInfo_t, TVSERVICE_CI_ANCILLARY_DATA_FIELDS) \
    RECORD(Status, TvServiceInstalledInfo_t, TVSERVICE_INSTALLED_FIELDS)               \
    RECORD(Status, TvServicePlayInfo_t, TVSERVICE_PLAY_INFO_FIELDS)                    \
    RECORD(Status, TvServiceCiCasMessageInfo_t, TVSERVICE_INT_AND_BYTE_FIELDS)         \
    RECORD(Status, TvServiceCcInfo_t, TVSERVICE_ONE_INT_FIELDS)                        \
    RECORD(Status, TvServiceTryRunReply_t, TVSERVICE_ONE_INT_FIELDS)                   \
    RECORD(Status, TvServiceOpappInfo_t, TVSERVICE_ONE_INT_FIELDS)
TVSERVICE_STATUS_RECORDS(GENRPC_RECORD)

} // namespace tvservice
