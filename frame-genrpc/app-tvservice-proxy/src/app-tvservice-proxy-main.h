// The client side of the connection to the TV service.
#pragma once

#include <genrpc/proxy.h>
#include <tvservice/interfaces.h>

namespace tvservice {

// A framework member that sends each request as one message and delivers each notification to its clients. Requests may
// come from any thread; notifications are delivered on the module's receiving thread.
class Proxy : public genrpc::Proxy<ServiceInterface, ClientInterface> {
public:
    Proxy();

    int registerMessageHandlers() override;

    // begin generated: senders
    int tvServiceReq(frame::MsgIds& ids, const frame::TransportInfo& transport,
                     const std::vector<TvServiceReq_t>& requests) override;
    int tvServiceSwapWinReq(frame::MsgIds& ids, const frame::TransportInfo& transport,
                            const TvServiceSwapWinReq_t& request) override;
    int tvServiceStreamInfoReq(frame::MsgIds& ids, const frame::TransportInfo& transport,
                               const TvServiceStreamInfoReq_t& request) override;
    int tvServiceAudioReq(frame::MsgIds& ids, const frame::TransportInfo& transport,
                          const TvServiceAudioReq_t& request) override;
    int tvServiceSubtitleReq(frame::MsgIds& ids, const frame::TransportInfo& transport,
                             const TvServiceSubtitleReq_t& request) override;
    int tvServiceVideoReq(frame::MsgIds& ids, const frame::TransportInfo& transport,
                          const TvServiceVideoReq_t& request) override;
    int tvServiceTeletextReq(frame::MsgIds& ids, const frame::TransportInfo& transport,
                             const TvServiceTeletextReq_t& request) override;
    int tvServiceInfoReq(frame::MsgIds& ids, const frame::TransportInfo& transport) override;
    int tvServiceAskReleaseReq(frame::MsgIds& ids, const frame::TransportInfo& transport,
                               const TvServiceAskReleaseReq_t& request) override;
    int tvServiceSendKeyReq(frame::MsgIds& ids, const frame::TransportInfo& transport, const std::string& key) override;
    int tvServiceSListChangedInd(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                 const TvServiceSListChangedInd_t& indication) override;
    int tvServiceTryRunReq(frame::MsgIds& ids, const frame::TransportInfo& transport,
                           const TvServiceTryRunRequestParams_t& params) override;
    int setParentalLockInfo(frame::MsgIds& ids, const frame::TransportInfo& transport,
                            const TvServiceParentalLockInfo_t& info) override;
    int mtsAudioChangeReq(frame::MsgIds& ids, const frame::TransportInfo& transport, MtsAudioTrack_t track) override;
    int setCasService(frame::MsgIds& ids, const frame::TransportInfo& transport,
                      TvServiceCasServiceType_t type) override;
    int requestPackagesReq(frame::MsgIds& ids, const frame::TransportInfo& transport, reqeustOadType_t type,
                           const std::string& packages) override;
    int tvServiceSourceChanged(frame::MsgIds& ids, const frame::TransportInfo& transport,
                               const std::string& source) override;
    // end generated

    // Message handlers; the context is the proxy.
    // begin generated: handlers
    static int callTvServiceInfo(const frame::MsgMeta& meta, const frame::TransportInfo& transport, const void* payload,
                                 void* context);
    static int callTvServiceConflictInfo(const frame::MsgMeta& meta, const frame::TransportInfo& transport,
                                         const void* payload, void* context);
    static int callTvServiceSwapWinInfo(const frame::MsgMeta& meta, const frame::TransportInfo& transport,
                                        const void* payload, void* context);
    static int callTvServiceStreamInfo(const frame::MsgMeta& meta, const frame::TransportInfo& transport,
                                       const void* payload, void* context);
    static int callTvServiceAudioInfo(const frame::MsgMeta& meta, const frame::TransportInfo& transport,
                                      const void* payload, void* context);
    static int callTvServiceSubtitleInfo(const frame::MsgMeta& meta, const frame::TransportInfo& transport,
                                         const void* payload, void* context);
    static int callTvServiceVideoInfo(const frame::MsgMeta& meta, const frame::TransportInfo& transport,
                                      const void* payload, void* context);
    static int callTvServiceTeletextInfo(const frame::MsgMeta& meta, const frame::TransportInfo& transport,
                                         const void* payload, void* context);
    static int callTvServiceAskReleaseInfo(const frame::MsgMeta& meta, const frame::TransportInfo& transport,
                                           const void* payload, void* context);
    static int callTvServiceAskReleaseConf(const frame::MsgMeta& meta, const frame::TransportInfo& transport,
                                           const void* payload, void* context);
    static int callTvServiceStatusInfo(const frame::MsgMeta& meta, const frame::TransportInfo& transport,
                                       const void* payload, void* context);
    static int callTvServiceNetworkChangeMsg(const frame::MsgMeta& meta, const frame::TransportInfo& transport,
                                             const void* payload, void* context);
    static int callTvServiceTunerResult(const frame::MsgMeta& meta, const frame::TransportInfo& transport,
                                        const void* payload, void* context);
    static int callTvServiceTunerStatusMessage(const frame::MsgMeta& meta, const frame::TransportInfo& transport,
                                               const void* payload, void* context);
    static int callTvServiceBroadcastApplictionInfo(const frame::MsgMeta& meta, const frame::TransportInfo& transport,
                                                    const void* payload, void* context);
    static int callTvServiceUriLinkageInfo(const frame::MsgMeta& meta, const frame::TransportInfo& transport,
                                           const void* payload, void* context);
    static int callTvServiceCiAncillaryDataInfo(const frame::MsgMeta& meta, const frame::TransportInfo& transport,
                                                const void* payload, void* context);
    static int callTvServiceInstalledInfo(const frame::MsgMeta& meta, const frame::TransportInfo& transport,
                                          const void* payload, void* context);
    static int callTvServicePlayInfo(const frame::MsgMeta& meta, const frame::TransportInfo& transport,
                                     const void* payload, void* context);
    static int callTvServiceFoundNewOadPacket(const frame::MsgMeta& meta, const frame::TransportInfo& transport,
                                              const void* payload, void* context);
    static int callTvServiceCiSasMessageInfo(const frame::MsgMeta& meta, const frame::TransportInfo& transport,
                                             const void* payload, void* context);
    static int callTvServiceCcInfoNotify(const frame::MsgMeta& meta, const frame::TransportInfo& transport,
                                         const void* payload, void* context);
    static int callTvServiceMtsAudioTrackInfoNotify(const frame::MsgMeta& meta, const frame::TransportInfo& transport,
                                                    const void* payload, void* context);
    static int callTvserviceOadStatusNotify(const frame::MsgMeta& meta, const frame::TransportInfo& transport,
                                            const void* payload, void* context);
    static int callTvserviceOadProgressNotify(const frame::MsgMeta& meta, const frame::TransportInfo& transport,
                                              const void* payload, void* context);
    // end generated
};

} // namespace tvservice

// Creates one proxy in a null-terminated array; the caller owns both.
extern "C" void** CreateTvServiceProxy();
