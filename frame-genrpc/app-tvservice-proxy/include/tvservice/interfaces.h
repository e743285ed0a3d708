// The interface of the TV service for a process: ServiceInterface for requests, ClientInterface for notifications.
//
// Applications do not call the service directly; they use the adapter, which keeps the terminals of both services
// apart.
#pragma once

#include <tvservice/message-list.h>

#include <boost/shared_ptr.hpp>

namespace tvservice {

// Receives the TV service's notifications: one method for each, in the order of TVSERVICE_NOTIFICATIONS. Called on the
// framework's receiving thread; the results are ignored. docs/messages.md lists their contents.
class ClientInterface {
public:
    virtual ~ClientInterface() = default;
    // begin generated: notifications
    virtual int tvServiceInfo(frame::MsgIds& ids, const frame::TransportInfo& transport,
                              const std::vector<TvServiceInfo_t>& infos) = 0;
    virtual int tvServiceConflictInfo(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                      const TvServiceConflictInfo_t& info) = 0;
    virtual int tvServiceSwapWinInfo(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                     const TvServiceSwapWinInfo_t& info) = 0;
    virtual int tvServiceStreamInfo(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                    const TvServiceStreamInfo_t& info) = 0;
    virtual int tvServiceAudioInfo(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                   const TvServiceAudioInfo_t& info) = 0;
    virtual int tvServiceSubtitleInfo(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                      const TvServiceSubtitleInfo_t& info) = 0;
    virtual int tvServiceVideoInfo(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                   const TvServiceVideoInfo_t& info) = 0;
    virtual int tvServiceTeletextInfo(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                      const TvServiceTeletextInfo_t& info) = 0;
    virtual int tvServiceAskReleaseInfo(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                        const TvServiceAskReleaseInfo_t& info) = 0;
    virtual int tvServiceAskReleaseConf(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                        const TvServiceAskReleaseConf_t& confirmation) = 0;
    virtual int tvServiceStatusInfo(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                    const TvServiceStatusInfo_t& info) = 0;
    virtual int tvServiceNetworkChangeMsg(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                          const TvServiceNetworkChangeMessage_t& message) = 0;
    virtual int tvServiceTunerResult(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                     const TvServiceTunerResult_t& result) = 0;
    virtual int tvServiceTunerStatusMessage(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                            const TvServiceTunerStatusMessage_t& message) = 0;
    virtual int tvServiceBroadcastApplictionInfo(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                                 std::uint32_t application) = 0;
    virtual int tvServiceUriLinkageInfo(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                        const std::vector<TvServiceUriLinkageInfo_t>& infos) = 0;
    virtual int tvServiceCiAncillaryDataInfo(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                             const TvServiceCiAncillaryDataInfo_t& info) = 0;
    virtual int tvServiceInstalledInfo(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                       const TvServiceInstalledInfo_t& info) = 0;
    virtual int tvServicePlayInfo(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                  const TvServicePlayInfo_t& info) = 0;
    virtual int tvServiceFoundNewOadPacket(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                           std::uint32_t packet) = 0;
    virtual int tvServiceCiSasMessageInfo(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                          const TvServiceCiCasMessageInfo_t& info) = 0;
    virtual int tvServiceCcInfoNotify(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                      const TvServiceCcInfo_t& info) = 0;
    virtual int tvServiceMtsAudioTrackInfoNotify(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                                 MtsAudioTrack_t track) = 0;
    virtual int tvserviceOadStatusNotify(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                         NotifyOadStatus_t status, const std::string& text) = 0;
    virtual int tvserviceOadProgressNotify(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                           std::int32_t progress) = 0;
    // end generated
};

// The TV service's requests, registered under interfaceKey: one method for each, in the order of TVSERVICE_REQUESTS.
// Every request is sent without waiting and returns 0; its outcome arrives as notifications. From any thread.
class ServiceInterface {
public:
    static constexpr const char* interfaceKey = "orvel.lm.interfaces.tvservice";

    virtual ~ServiceInterface() = default;
    // begin generated: requests
    virtual int tvServiceReq(frame::MsgIds& ids, const frame::TransportInfo& transport,
                             const std::vector<TvServiceReq_t>& requests) = 0;
    virtual int tvServiceSwapWinReq(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                    const TvServiceSwapWinReq_t& request) = 0;
    virtual int tvServiceStreamInfoReq(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                       const TvServiceStreamInfoReq_t& request) = 0;
    virtual int tvServiceAudioReq(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                  const TvServiceAudioReq_t& request) = 0;
    virtual int tvServiceSubtitleReq(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                     const TvServiceSubtitleReq_t& request) = 0;
    virtual int tvServiceVideoReq(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                  const TvServiceVideoReq_t& request) = 0;
    virtual int tvServiceTeletextReq(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                     const TvServiceTeletextReq_t& request) = 0;
    virtual int tvServiceInfoReq(frame::MsgIds& ids, const frame::TransportInfo& transport) = 0;
    virtual int tvServiceAskReleaseReq(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                       const TvServiceAskReleaseReq_t& request) = 0;
    virtual int tvServiceSendKeyReq(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                    const std::string& key) = 0;
    virtual int tvServiceSListChangedInd(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                         const TvServiceSListChangedInd_t& indication) = 0;
    virtual int tvServiceTryRunReq(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                   const TvServiceTryRunRequestParams_t& params) = 0;
    virtual int setParentalLockInfo(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                    const TvServiceParentalLockInfo_t& info) = 0;
    virtual int mtsAudioChangeReq(frame::MsgIds& ids, const frame::TransportInfo& transport, MtsAudioTrack_t track) = 0;
    virtual int setCasService(frame::MsgIds& ids, const frame::TransportInfo& transport,
                              TvServiceCasServiceType_t type) = 0;
    virtual int requestPackagesReq(frame::MsgIds& ids, const frame::TransportInfo& transport, reqeustOadType_t type,
                                   const std::string& packages) = 0;
    virtual int tvServiceSourceChanged(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                       const std::string& source) = 0;
    // end generated

    // Clients are identified by their object, whichever pointer holds it. addClient: 0, or -17 for a registered client;
    // removeClient: 0, or -2 for an unknown one. A client that is removed during a notification may still receive that
    // notification.
    virtual int addClient(boost::shared_ptr<ClientInterface> client) = 0;
    virtual int removeClient(boost::shared_ptr<ClientInterface> client) = 0;
};

} // namespace tvservice
