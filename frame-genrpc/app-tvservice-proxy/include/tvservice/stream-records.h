// The records of track handling: which streams a terminal has, which one is chosen, which ones conflict.
//
// Only the TV service and its clients know what most fields mean; here they have a type and a number, in
// tvservice/meanings.h the meaning that they have in the reference service. A bool is sent as a 32-bit word.
#pragma once

#include <genrpc/record.h>
#include <tvservice/core-records.h>

namespace tvservice {

// The audio track of a multichannel sound broadcast. The service defines the values (mtsTracks in tvservice/values.h);
// all are passed on unchanged.
enum MtsAudioTrack_t : std::int32_t {};

// ---- one stream ----

#define TVSERVICE_AUDIO_STREAM_FIELDS(FIELD) \
    FIELD(std::int32_t, intParam1)           \
    FIELD(std::string, strParam1)            \
    FIELD(std::string, strParam2)            \
    FIELD(std::int32_t, intParam2)           \
    FIELD(std::int32_t, intParam3)           \
    FIELD(std::int32_t, intParam4)           \
    FIELD(std::uint16_t, shortParam1)        \
    FIELD(std::uint16_t, shortParam2)        \
    FIELD(bool, flagParam1)                  \
    FIELD(bool, flagParam2)                  \
    FIELD(std::string, strParam3)            \
    FIELD(std::uint16_t, shortParam3)        \
    FIELD(std::uint16_t, shortParam4)        \
    FIELD(std::string, strParam4)

#define TVSERVICE_SUBTITLE_STREAM_FIELDS(FIELD) \
    FIELD(std::int32_t, intParam1)              \
    FIELD(std::string, strParam1)               \
    FIELD(std::string, strParam2)               \
    FIELD(std::int32_t, intParam2)              \
    FIELD(std::int32_t, intParam3)              \
    FIELD(std::uint16_t, shortParam1)           \
    FIELD(std::uint16_t, shortParam2)           \
    FIELD(std::uint16_t, shortParam3)           \
    FIELD(bool, flagParam1)                     \
    FIELD(bool, flagParam2)                     \
    FIELD(std::string, strParam3)

#define TVSERVICE_VIDEO_STREAM_FIELDS(FIELD) \
    FIELD(std::int32_t, intParam1)           \
    FIELD(std::string, strParam1)            \
    FIELD(std::int32_t, intParam2)           \
    FIELD(std::uint16_t, shortParam1)        \
    FIELD(std::uint16_t, shortParam2)        \
    FIELD(bool, flagParam1)                  \
    FIELD(std::uint16_t, shortParam3)        \
    FIELD(std::uint16_t, shortParam4)

#define TVSERVICE_TELETEXT_STREAM_FIELDS(FIELD) \
    FIELD(std::int32_t, intParam1)              \
    FIELD(std::string, strParam1)               \
    FIELD(std::uint16_t, shortParam1)

// ---- requests: a track for a terminal; the streams of something ----

#define TVSERVICE_TRACK_REQ_FIELDS(FIELD) \
    FIELD(TvServiceTerminal_t, terminal)  \
    FIELD(std::int32_t, intParam1)        \
    FIELD(std::int32_t, intParam2)

#define TVSERVICE_STREAM_INFO_REQ_FIELDS(FIELD) FIELD(std::int32_t, intParam1)

// ---- notifications: the streams of a terminal ----

#define TVSERVICE_AUDIO_INFO_FIELDS(FIELD) \
    FIELD(TvServiceTerminal_t, terminal)   \
    FIELD(std::int32_t, intParam1)         \
    FIELD(std::int32_t, intParam2)         \
    FIELD(std::int32_t, intParam3)         \
    FIELD(std::vector<AudioStreamInfo_t>, streams)

#define TVSERVICE_SUBTITLE_INFO_FIELDS(FIELD) \
    FIELD(TvServiceTerminal_t, terminal)      \
    FIELD(std::int32_t, intParam1)            \
    FIELD(std::int32_t, intParam2)            \
    FIELD(std::int32_t, intParam3)            \
    FIELD(std::vector<SubtitleStreamInfo_t>, streams)

#define TVSERVICE_VIDEO_INFO_FIELDS(FIELD)         \
    FIELD(TvServiceTerminal_t, terminal)           \
    FIELD(std::int32_t, intParam1)                 \
    FIELD(std::int32_t, intParam2)                 \
    FIELD(std::int32_t, intParam3)                 \
    FIELD(std::vector<VideoStreamInfo_t>, streams) \
    FIELD(std::int32_t, intParam4)                 \
    FIELD(std::int32_t, intParam5)

#define TVSERVICE_TELETEXT_INFO_FIELDS(FIELD) \
    FIELD(TvServiceTerminal_t, terminal)      \
    FIELD(std::int32_t, intParam1)            \
    FIELD(std::int32_t, intParam2)            \
    FIELD(std::vector<TeletextStreamInfo_t>, streams)

#define TVSERVICE_STREAM_INFO_FIELDS(FIELD) \
    FIELD(std::int32_t, intParam1)          \
    FIELD(std::string, strParam1)

#define TVSERVICE_CONFLICT_INFO_FIELDS(FIELD)    \
    FIELD(std::vector<std::uint32_t>, uintList1) \
    FIELD(std::vector<std::uint32_t>, uintList2) \
    FIELD(std::int32_t, intParam1)

#define TVSERVICE_STREAM_RECORDS(RECORD)                                       \
    RECORD(Stream, AudioStreamInfo_t, TVSERVICE_AUDIO_STREAM_FIELDS)           \
    RECORD(Stream, SubtitleStreamInfo_t, TVSERVICE_SUBTITLE_STREAM_FIELDS)     \
    RECORD(Stream, VideoStreamInfo_t, TVSERVICE_VIDEO_STREAM_FIELDS)           \
    RECORD(Stream, TeletextStreamInfo_t, TVSERVICE_TELETEXT_STREAM_FIELDS)     \
    RECORD(Stream, TvServiceAudioReq_t, TVSERVICE_TRACK_REQ_FIELDS)            \
    RECORD(Stream, TvServiceSubtitleReq_t, TVSERVICE_TRACK_REQ_FIELDS)         \
    RECORD(Stream, TvServiceVideoReq_t, TVSERVICE_TRACK_REQ_FIELDS)            \
    RECORD(Stream, TvServiceTeletextReq_t, TVSERVICE_TRACK_REQ_FIELDS)         \
    RECORD(Stream, TvServiceStreamInfoReq_t, TVSERVICE_STREAM_INFO_REQ_FIELDS) \
    RECORD(Stream, TvServiceAudioInfo_t, TVSERVICE_AUDIO_INFO_FIELDS)          \
    RECORD(Stream, TvServiceSubtitleInfo_t, TVSERVICE_SUBTITLE_INFO_FIELDS)    \
    RECORD(Stream, TvServiceVideoInfo_t, TVSERVICE_VIDEO_INFO_FIELDS)          \
    RECORD(Stream, TvServiceTeletextInfo_t, TVSERVICE_TELETEXT_INFO_FIELDS)    \
    RECORD(Stream, TvServiceStreamInfo_t, TVSERVICE_STREAM_INFO_FIELDS)        \
    RECORD(Stream, TvServiceConflictInfo_t, TVSERVICE_CONFLICT_INFO_FIELDS)
TVSERVICE_STREAM_RECORDS(GENRPC_RECORD)

} // namespace tvservice
