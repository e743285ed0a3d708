// What every field of the TV service's records means, and every argument that is no record. The adapter and the proxies
// know the meaning of terminals, uri, uuid, reqId and result only; everything else they pass on as it is. The other
// meanings are those of the reference service.
#pragma once

#include <genrpc/meanings.h>
#include <tvservice/messages.h>
#include <tvservice/values.h>

namespace tvservice {

inline constexpr const char* definedByService = "defined by the service; passed on as it is";
inline constexpr const char* chosenStream = "whether this stream is chosen";

// ---- play and stop ----

GENRPC_MEANINGS(TvServiceTerminal_t,
                {"type",
                 "the kind of terminal; of type 5, a stop goes to the MM service only if that plays there, and to the "
                 "TV service once",
                 &terminalTypes},
                {"id", "which of the terminals of this type"})

GENRPC_MEANINGS(TvServiceReq_t, {"terminal", "where to show it"}, {"intParam1", definedByService},
                {"intParam2", definedByService}, {"intParam3", definedByService},
                {"uri", "what to show; `rec://plain/null` stops what the terminal shows"},
                {"strParam1", definedByService}, {"uuid", "the identity of the source; repeated in the answer"},
                {"strParam2", definedByService}, {"strParamList", definedByService},
                {"reqId",
                 "the request's id, repeated in the answer: empty or equal in all requests of one call; the adapter "
                 "replaces an empty one"},
                {"strParam3", definedByService}, {"strParam4", definedByService}, {"intParam4", definedByService})

GENRPC_MEANINGS(TvServiceInfo_t, {"terminal", "the terminal of the request"},
                {"result", "what became of the request", &results},
                {"uri", "the address of the request; without reqId, what the terminal shows"},
                {"uuid", "the identity of the source, of the request"}, {"uuidAncestor", definedByService},
                {"reqId", "the request's id; empty in a report of what the TV service's terminals show"})

// ---- one stream ----

GENRPC_MEANINGS(AudioStreamInfo_t, {"intParam1", "number of the track, from 1"}, {"strParam1", "language"},
                {"strParam2", "name"}, {"intParam2", "coding", &audioCodings}, {"intParam3", "number of channels"},
                {"intParam4", "sampling rate in Hz"}, {"shortParam1", "PID"}, {"shortParam2", "component tag"},
                {"flagParam1", chosenStream}, {"flagParam2", "whether it describes the picture"}, {"strParam3", "role"},
                {"shortParam3", "bit rate in kbit/s"}, {"shortParam4", "not used"},
                {"strParam4", "address of the channel"})

GENRPC_MEANINGS(SubtitleStreamInfo_t, {"intParam1", "number of the track, from 1"}, {"strParam1", "language"},
                {"strParam2", "name"}, {"intParam2", "coding", &subtitleCodings},
                {"intParam3", "type code of the broadcast"}, {"shortParam1", "PID"},
                {"shortParam2", "composition page"}, {"shortParam3", "ancillary page"}, {"flagParam1", chosenStream},
                {"flagParam2", "whether it is for the hard of hearing"}, {"strParam3", "address of the channel"})

GENRPC_MEANINGS(VideoStreamInfo_t, {"intParam1", "number of the track, from 1"}, {"strParam1", "name"},
                {"intParam2", "coding", &videoCodings}, {"shortParam1", "PID"}, {"shortParam2", "frames per second"},
                {"flagParam1", chosenStream}, {"shortParam3", "width in pixels"}, {"shortParam4", "height in pixels"})

GENRPC_MEANINGS(TeletextStreamInfo_t, {"intParam1", "number of the track, from 1"}, {"strParam1", "language"},
                {"shortParam1", "PID"})

// ---- tracks ----

consteval auto trackRequestMeanings() {
    return std::to_array<genrpc::Meaning>({{"terminal", "whose track to choose"},
                                           {"intParam1", "number of the track; 0: none", nullptr, 0},
                                           {"intParam2", "repeated in the answer, except for teletext"}});
}
consteval auto meaningsOf(std::type_identity<TvServiceAudioReq_t>) { return trackRequestMeanings(); }
consteval auto meaningsOf(std::type_identity<TvServiceSubtitleReq_t>) { return trackRequestMeanings(); }
consteval auto meaningsOf(std::type_identity<TvServiceVideoReq_t>) { return trackRequestMeanings(); }
consteval auto meaningsOf(std::type_identity<TvServiceTeletextReq_t>) { return trackRequestMeanings(); }

inline constexpr genrpc::Meaning tracksTerminal{"terminal", "whose tracks these are"};
inline constexpr genrpc::Meaning chosenTrack{"intParam1", "number of the chosen track; 0: none"};
inline constexpr genrpc::Meaning trackResult{"intParam2", "what became of the request; done after a play", &results};
inline constexpr genrpc::Meaning trackEcho{"intParam3", "intParam2 of the request; 0 after a play"};
inline constexpr genrpc::Meaning trackStreams{"streams", "the terminal's streams; none without a channel"};

GENRPC_MEANINGS(TvServiceAudioInfo_t, tracksTerminal, chosenTrack, trackResult, trackEcho, trackStreams)
GENRPC_MEANINGS(TvServiceSubtitleInfo_t, tracksTerminal, chosenTrack, trackResult, trackEcho, trackStreams)
GENRPC_MEANINGS(TvServiceVideoInfo_t, tracksTerminal, chosenTrack, trackResult, trackEcho, trackStreams,
                {"intParam4", "width of the chosen picture; 0: none"},
                {"intParam5", "height of the chosen picture; 0: none"})
GENRPC_MEANINGS(TvServiceTeletextInfo_t, tracksTerminal, chosenTrack, trackResult, trackStreams)

GENRPC_MEANINGS(TvServiceStreamInfoReq_t, {"intParam1", "number of a channel, from 1", nullptr, 1})
GENRPC_MEANINGS(TvServiceStreamInfo_t, {"intParam1", "number of the channel, as in the request"},
                {"strParam1", "address, name and number of streams; empty for an unknown channel"})

GENRPC_MEANINGS(TvServiceConflictInfo_t, {"uintList1", "the tuners that are wanted"},
                {"uintList2", "the tuners of which one has to be released"},
                {"intParam1", "seconds until the service chooses; 0: it does not"})

// ---- status and negotiation ----

GENRPC_MEANINGS(TvServiceSwapWinReq_t,
                {"intParam1", "a type of terminal: its terminal 0 and the main terminal swap what they show",
                 &terminalTypes, 0})
GENRPC_MEANINGS(TvServiceSwapWinInfo_t,
                {"intParam1",
                 "the type in the request; none when a terminal is locked, when there is nothing to swap, or when the "
                 "client has no room for one more terminal",
                 &terminalTypes})
GENRPC_MEANINGS(TvServiceAskReleaseReq_t, {"intParam1", "number of a tuner, from 0", nullptr, 0})
GENRPC_MEANINGS(TvServiceAskReleaseInfo_t, {"intParam1", "number of the tuner"},
                {"byteParam1", "what to do with it", &releaseDemands})
GENRPC_MEANINGS(TvServiceAskReleaseConf_t, {"intParam1", "number of the tuner, as in the request"},
                {"byteParam1", "what became of the request", &releaseAnswers})
GENRPC_MEANINGS(TvServiceSListChangedInd_t, {"intParam1", "number of the new list", nullptr, 0})
GENRPC_MEANINGS(TvServiceTryRunRequestParams_t, {"intParam1", "number of a channel, from 1", nullptr, 1})
GENRPC_MEANINGS(TvServicePlayInfo_t, {"strParam1", "address of the channel; empty for an unknown one"})
GENRPC_MEANINGS(TvServiceParentalLockInfo_t, {"terminal", "the terminal to lock or unlock"},
                {"intParam1", "what to make of it; every number but 0 locks", &lockStates},
                {"intParam2", "the age that the lock is for", nullptr, 0})
GENRPC_MEANINGS(ServiceStatusInfo_t, {"intParam1", "type of the terminal", &terminalTypes},
                {"byteParam1", "whether it shows something", &displayStates}, {"intParam2", "id of the terminal"},
                {"intParam3", "network of the channel"}, {"intParam4", "transport stream of the channel"},
                {"intParam5", "service of the channel"}, {"intParam6", "number of the channel; 0: none"},
                {"shortParam1", "the age that the lock is for; 0 without a lock"},
                {"strParam1", "address of what it shows"}, {"byteParam2", "whether it is locked", &lockStates})
GENRPC_MEANINGS(TvServiceStatusInfo_t, {"intParam1", "number of the service list, as last reported"},
                {"services", "each terminal that shows something or is locked"})
GENRPC_MEANINGS(TvServiceNetworkChangeMessage_t, {"byteParam1", "whether there is a source", &sourceStates},
                {"strParam1", "name of the source"})
GENRPC_MEANINGS(TvServiceTunerResult_t, {"byteParam1", "whether there is a signal", &signalStates},
                {"intParam1", "number of the tuner, from 0"}, {"terminal", "for which it tuned"},
                {"intParam2", "strength of the signal in percent"}, {"intParam3", "quality of the signal in percent"})
GENRPC_MEANINGS(TvServiceTunerStatusMessage_t, {"byteParam1", "what the tuner does", &tunerStates},
                {"intParam1", "number of the tuner, from 0"}, {"terminal", "for which it tunes"},
                {"intParam2", "frequency in kHz"}, {"intParam3", "symbol rate in kBd"},
                {"intParam4", "transport stream"})
GENRPC_MEANINGS(TvServiceUriLinkageInfo_t, {"byteParam1", "kind of the link", &linkageKinds},
                {"strParam1", "address of the channel"}, {"strParam2", "what the channel is linked to"})
GENRPC_MEANINGS(TvServiceCiAncillaryDataInfo_t, {"strParamList", "the module's lines"},
                {"strParam1", "name of the module"})
GENRPC_MEANINGS(TvServiceInstalledInfo_t, {"byteParam1", "how much is installed, in percent"})
GENRPC_MEANINGS(TvServiceCiCasMessageInfo_t, {"intParam1", "type of the service, as in the request"},
                {"byteParam1", "whether it is chosen", &casChoices})
GENRPC_MEANINGS(TvServiceCcInfo_t, {"intParam1", "whether captions are shown", &captionStates})
GENRPC_MEANINGS(TvServiceTryRunReply_t, {"intParam1", definedByService})
GENRPC_MEANINGS(TvServiceOpappInfo_t, {"intParam1", definedByService})

TVSERVICE_CORE_RECORDS(GENRPC_CHECK_RECORD_MEANINGS)
TVSERVICE_STREAM_RECORDS(GENRPC_CHECK_RECORD_MEANINGS)
TVSERVICE_STATUS_RECORDS(GENRPC_CHECK_RECORD_MEANINGS)

// ---- arguments that are no records ----

namespace messages {

GENRPC_MEANINGS(TvServiceSendKeyReq,
                {"key",
                 "`RED`, `GREEN`, `YELLOW` or `BLUE` for an application in the broadcast; `CC` or `CAPTIONS` shows or "
                 "hides captions; any other name has no effect"})
GENRPC_MEANINGS(MtsAudioChangeReq, {"track", "which track to choose; another number changes nothing", &mtsTracks})
GENRPC_MEANINGS(SetCasService, {"type", "defined by the service, which refuses negative numbers", nullptr, 0})
GENRPC_MEANINGS(RequestPackagesReq, {"type", "defined by the service; repeated in the texts of the statuses"},
                {"packages", "names, separated by commas"})
GENRPC_MEANINGS(TvServiceSourceChanged, {"source", "name of the source; empty: none"})
GENRPC_MEANINGS(TvServiceBroadcastApplictionInfo,
                {"application", "which application has taken the key", &broadcastApplications})
GENRPC_MEANINGS(TvServiceFoundNewOadPacket, {"packet", "number of packages in the download"})
GENRPC_MEANINGS(TvServiceMtsAudioTrackInfoNotify, {"track", "the chosen track", &mtsTracks})
GENRPC_MEANINGS(TvserviceOadStatusNotify, {"status", "status of the download", &oadStatuses},
                {"text", "type and packages of the download, or why it is refused"})
GENRPC_MEANINGS(TvserviceOadProgressNotify, {"progress", "how much of the download is done, in percent"})

} // namespace messages

TVSERVICE_MESSAGES(GENRPC_CHECK_MESSAGE_MEANINGS)

} // namespace tvservice
