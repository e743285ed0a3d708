// The messages of the TV service, each listed once: its name, its method in the interfaces, its id, its arguments. A
// request's comment is copied to the adapter's method. The compiler derives types and tables from these lists (see
// genrpc/message.h); after a change, `./dev generate` writes the interfaces, senders, handlers and documents.
#pragma once

#include <genrpc/arguments.h>
#include <tvservice/core-records.h>
#include <tvservice/status-records.h>
#include <tvservice/stream-records.h>

// Requests, from an application to the service, in the order of their ids.
#define TVSERVICE_REQUESTS(MESSAGE)                                                                                    \
    MESSAGE(tvservice, Request, TvServiceReq, tvServiceReq, 0x28671236,                                                \
            (std::vector<tvservice::TvServiceReq_t>, requests))                                                        \
    /* Swaps what two windows show: tvServiceSwapWinInfo. */                                                           \
    MESSAGE(tvservice, Request, TvServiceSwapWinReq, tvServiceSwapWinReq, 0x28671237,                                  \
            (tvservice::TvServiceSwapWinReq_t, request))                                                               \
    /* Asks about a stream: tvServiceStreamInfo. */                                                                    \
    MESSAGE(tvservice, Request, TvServiceStreamInfoReq, tvServiceStreamInfoReq, 0x28671238,                            \
            (tvservice::TvServiceStreamInfoReq_t, request))                                                            \
    /* Chooses a terminal's audio track: tvServiceAudioInfo. */                                                        \
    MESSAGE(tvservice, Request, TvServiceAudioReq, tvServiceAudioReq, 0x28671239,                                      \
            (tvservice::TvServiceAudioReq_t, request))                                                                 \
    /* Chooses a terminal's subtitles: tvServiceSubtitleInfo. */                                                       \
    MESSAGE(tvservice, Request, TvServiceSubtitleReq, tvServiceSubtitleReq, 0x2867123A,                                \
            (tvservice::TvServiceSubtitleReq_t, request))                                                              \
    /* Chooses a terminal's video track: tvServiceVideoInfo. */                                                        \
    MESSAGE(tvservice, Request, TvServiceVideoReq, tvServiceVideoReq, 0x2867123B,                                      \
            (tvservice::TvServiceVideoReq_t, request))                                                                 \
    /* Chooses a terminal's teletext: tvServiceTeletextInfo. */                                                        \
    MESSAGE(tvservice, Request, TvServiceTeletextReq, tvServiceTeletextReq, 0x2867123C,                                \
            (tvservice::TvServiceTeletextReq_t, request))                                                              \
    /* Asks what the terminals show: tvServiceInfo. */                                                                 \
    MESSAGE(tvservice, Request, TvServiceInfoReq, tvServiceInfoReq, 0x2867123D)                                        \
    /* Negotiates the release of a resource: tvServiceAskReleaseInfo, tvServiceAskReleaseConf. */                      \
    MESSAGE(tvservice, Request, TvServiceAskReleaseReq, tvServiceAskReleaseReq, 0x2867123E,                            \
            (tvservice::TvServiceAskReleaseReq_t, request))                                                            \
    /* Sends a key to the application in the broadcast: tvServiceBroadcastApplictionInfo. */                           \
    MESSAGE(tvservice, Request, TvServiceSendKeyReq, tvServiceSendKeyReq, 0x2867123F, (std::string, key))              \
    /* The list of services has changed: tvServiceStatusInfo. */                                                       \
    MESSAGE(tvservice, Request, TvServiceSListChangedInd, tvServiceSListChangedInd, 0x28671240,                        \
            (tvservice::TvServiceSListChangedInd_t, indication))                                                       \
    /* Tests whether something could be played: tvServicePlayInfo. */                                                  \
    MESSAGE(tvservice, Request, TvServiceTryRunReq, tvServiceTryRunReq, 0x28671241,                                    \
            (tvservice::TvServiceTryRunRequestParams_t, params))                                                       \
    /* Locks or unlocks a terminal: tvServiceStatusInfo. */                                                            \
    MESSAGE(tvservice, Request, SetParentalLockInfo, setParentalLockInfo, 0x28671242,                                  \
            (tvservice::TvServiceParentalLockInfo_t, info))                                                            \
    /* Chooses the audio track of a multichannel sound broadcast: tvServiceMtsAudioTrackInfoNotify. */                 \
    MESSAGE(tvservice, Request, MtsAudioChangeReq, mtsAudioChangeReq, 0x28671243, (tvservice::MtsAudioTrack_t, track)) \
    /* Chooses the conditional access service: tvServiceCiSasMessageInfo. */                                           \
    MESSAGE(tvservice, Request, SetCasService, setCasService, 0x28671244,                                              \
            (tvservice::TvServiceCasServiceType_t, type))                                                              \
    /* Fetches packages over the air: tvserviceOadStatusNotify, tvserviceOadProgressNotify. */                         \
    MESSAGE(tvservice, Request, RequestPackagesReq, requestPackagesReq, 0x28671245,                                    \
            (tvservice::reqeustOadType_t, type), (std::string, packages))                                              \
    /* The source of the signal has changed: tvServiceNetworkChangeMsg. */                                             \
    MESSAGE(tvservice, Request, TvServiceSourceChanged, tvServiceSourceChanged, 0x28671246, (std::string, source))

// The answer to play and stop requests, from the service. The adapter passes it to its resource manager.
#define TVSERVICE_ANSWER(MESSAGE)                                              \
    MESSAGE(tvservice, Notification, TvServiceInfo, tvServiceInfo, 0x28671247, \
            (std::vector<tvservice::TvServiceInfo_t>, infos))

// All other notifications, in the order of their ids. The adapter passes them to every application.
#define TVSERVICE_NEWS(MESSAGE)                                                                                      \
    MESSAGE(tvservice, Notification, TvServiceConflictInfo, tvServiceConflictInfo, 0x28671248,                       \
            (tvservice::TvServiceConflictInfo_t, info))                                                              \
    MESSAGE(tvservice, Notification, TvServiceSwapWinInfo, tvServiceSwapWinInfo, 0x28671249,                         \
            (tvservice::TvServiceSwapWinInfo_t, info))                                                               \
    MESSAGE(tvservice, Notification, TvServiceStreamInfo, tvServiceStreamInfo, 0x2867124A,                           \
            (tvservice::TvServiceStreamInfo_t, info))                                                                \
    MESSAGE(tvservice, Notification, TvServiceAudioInfo, tvServiceAudioInfo, 0x2867124B,                             \
            (tvservice::TvServiceAudioInfo_t, info))                                                                 \
    MESSAGE(tvservice, Notification, TvServiceSubtitleInfo, tvServiceSubtitleInfo, 0x2867124C,                       \
            (tvservice::TvServiceSubtitleInfo_t, info))                                                              \
    MESSAGE(tvservice, Notification, TvServiceVideoInfo, tvServiceVideoInfo, 0x2867124D,                             \
            (tvservice::TvServiceVideoInfo_t, info))                                                                 \
    MESSAGE(tvservice, Notification, TvServiceTeletextInfo, tvServiceTeletextInfo, 0x2867124E,                       \
            (tvservice::TvServiceTeletextInfo_t, info))                                                              \
    MESSAGE(tvservice, Notification, TvServiceAskReleaseInfo, tvServiceAskReleaseInfo, 0x2867124F,                   \
            (tvservice::TvServiceAskReleaseInfo_t, info))                                                            \
    MESSAGE(tvservice, Notification, TvServiceAskReleaseConf, tvServiceAskReleaseConf, 0x28671250,                   \
            (tvservice::TvServiceAskReleaseConf_t, confirmation))                                                    \
    MESSAGE(tvservice, Notification, TvServiceStatusInfo, tvServiceStatusInfo, 0x28671251,                           \
            (tvservice::TvServiceStatusInfo_t, info))                                                                \
    MESSAGE(tvservice, Notification, TvServiceNetworkChangeMsg, tvServiceNetworkChangeMsg, 0x28671252,               \
            (tvservice::TvServiceNetworkChangeMessage_t, message))                                                   \
    MESSAGE(tvservice, Notification, TvServiceTunerResult, tvServiceTunerResult, 0x28671253,                         \
            (tvservice::TvServiceTunerResult_t, result))                                                             \
    MESSAGE(tvservice, Notification, TvServiceTunerStatusMessage, tvServiceTunerStatusMessage, 0x28671254,           \
            (tvservice::TvServiceTunerStatusMessage_t, message))                                                     \
    MESSAGE(tvservice, Notification, TvServiceBroadcastApplictionInfo, tvServiceBroadcastApplictionInfo, 0x28671255, \
            (std::uint32_t, application))                                                                            \
    MESSAGE(tvservice, Notification, TvServiceUriLinkageInfo, tvServiceUriLinkageInfo, 0x28671256,                   \
            (std::vector<tvservice::TvServiceUriLinkageInfo_t>, infos))                                              \
    MESSAGE(tvservice, Notification, TvServiceCiAncillaryDataInfo, tvServiceCiAncillaryDataInfo, 0x28671257,         \
            (tvservice::TvServiceCiAncillaryDataInfo_t, info))                                                       \
    MESSAGE(tvservice, Notification, TvServiceInstalledInfo, tvServiceInstalledInfo, 0x28671258,                     \
            (tvservice::TvServiceInstalledInfo_t, info))                                                             \
    MESSAGE(tvservice, Notification, TvServicePlayInfo, tvServicePlayInfo, 0x28671259,                               \
            (tvservice::TvServicePlayInfo_t, info))                                                                  \
    MESSAGE(tvservice, Notification, TvServiceFoundNewOadPacket, tvServiceFoundNewOadPacket, 0x2867125A,             \
            (std::uint32_t, packet))                                                                                 \
    MESSAGE(tvservice, Notification, TvServiceCiSasMessageInfo, tvServiceCiSasMessageInfo, 0x2867125B,               \
            (tvservice::TvServiceCiCasMessageInfo_t, info))                                                          \
    MESSAGE(tvservice, Notification, TvServiceCcInfoNotify, tvServiceCcInfoNotify, 0x2867125C,                       \
            (tvservice::TvServiceCcInfo_t, info))                                                                    \
    MESSAGE(tvservice, Notification, TvServiceMtsAudioTrackInfoNotify, tvServiceMtsAudioTrackInfoNotify, 0x2867125D, \
            (tvservice::MtsAudioTrack_t, track))                                                                     \
    MESSAGE(tvservice, Notification, TvserviceOadStatusNotify, tvserviceOadStatusNotify, 0x2867125E,                 \
            (tvservice::NotifyOadStatus_t, status), (std::string, text))                                             \
    MESSAGE(tvservice, Notification, TvserviceOadProgressNotify, tvserviceOadProgressNotify, 0x2867125F,             \
            (std::int32_t, progress))

#define TVSERVICE_NOTIFICATIONS(MESSAGE) TVSERVICE_ANSWER(MESSAGE) TVSERVICE_NEWS(MESSAGE)
#define TVSERVICE_MESSAGES(MESSAGE) TVSERVICE_REQUESTS(MESSAGE) TVSERVICE_NOTIFICATIONS(MESSAGE)
