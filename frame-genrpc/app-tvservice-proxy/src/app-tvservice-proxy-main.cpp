#include "app-tvservice-proxy-main.h"

#include <tvservice/messages.h>

namespace tvservice {
namespace {

constexpr auto module = genrpc::TvProxyLog;

} // namespace

Proxy::Proxy()
    : genrpc::Proxy<ServiceInterface, ClientInterface>({.serviceName = serviceName,
                                                        .messages = messageSet(),
                                                        .module = module,
                                                        .file = __FILE_NAME__,
                                                        .takesInterfaceBack = false}) {}

int Proxy::registerMessageHandlers() {
    GENRPC_LOG(module, vdlDebugTrace, "Called.\n");
    // begin generated: bindings
    genrpc::bind<messages::TvServiceInfo>(*this, callTvServiceInfo);
    genrpc::bind<messages::TvServiceConflictInfo>(*this, callTvServiceConflictInfo);
    genrpc::bind<messages::TvServiceSwapWinInfo>(*this, callTvServiceSwapWinInfo);
    genrpc::bind<messages::TvServiceStreamInfo>(*this, callTvServiceStreamInfo);
    genrpc::bind<messages::TvServiceAudioInfo>(*this, callTvServiceAudioInfo);
    genrpc::bind<messages::TvServiceSubtitleInfo>(*this, callTvServiceSubtitleInfo);
    genrpc::bind<messages::TvServiceVideoInfo>(*this, callTvServiceVideoInfo);
    genrpc::bind<messages::TvServiceTeletextInfo>(*this, callTvServiceTeletextInfo);
    genrpc::bind<messages::TvServiceAskReleaseInfo>(*this, callTvServiceAskReleaseInfo);
    genrpc::bind<messages::TvServiceAskReleaseConf>(*this, callTvServiceAskReleaseConf);
    genrpc::bind<messages::TvServiceStatusInfo>(*this, callTvServiceStatusInfo);
    genrpc::bind<messages::TvServiceNetworkChangeMsg>(*this, callTvServiceNetworkChangeMsg);
    genrpc::bind<messages::TvServiceTunerResult>(*this, callTvServiceTunerResult);
    genrpc::bind<messages::TvServiceTunerStatusMessage>(*this, callTvServiceTunerStatusMessage);
    genrpc::bind<messages::TvServiceBroadcastApplictionInfo>(*this, callTvServiceBroadcastApplictionInfo);
    genrpc::bind<messages::TvServiceUriLinkageInfo>(*this, callTvServiceUriLinkageInfo);
    genrpc::bind<messages::TvServiceCiAncillaryDataInfo>(*this, callTvServiceCiAncillaryDataInfo);
    genrpc::bind<messages::TvServiceInstalledInfo>(*this, callTvServiceInstalledInfo);
    genrpc::bind<messages::TvServicePlayInfo>(*this, callTvServicePlayInfo);
    genrpc::bind<messages::TvServiceFoundNewOadPacket>(*this, callTvServiceFoundNewOadPacket);
    genrpc::bind<messages::TvServiceCiSasMessageInfo>(*this, callTvServiceCiSasMessageInfo);
    genrpc::bind<messages::TvServiceCcInfoNotify>(*this, callTvServiceCcInfoNotify);
    genrpc::bind<messages::TvServiceMtsAudioTrackInfoNotify>(*this, callTvServiceMtsAudioTrackInfoNotify);
    genrpc::bind<messages::TvserviceOadStatusNotify>(*this, callTvserviceOadStatusNotify);
    genrpc::bind<messages::TvserviceOadProgressNotify>(*this, callTvserviceOadProgressNotify);
    // end generated
    return 0;
}

// ---- requests ----

// begin generated: senders
int Proxy::tvServiceReq(frame::MsgIds& ids, const frame::TransportInfo&, const std::vector<TvServiceReq_t>& requests) {
    GENRPC_LOG(module, vdlDebugTrace, "Called.\n");
    return send<messages::TvServiceReq>(ids, requests);
}

int Proxy::tvServiceSwapWinReq(frame::MsgIds& ids, const frame::TransportInfo&, const TvServiceSwapWinReq_t& request) {
    GENRPC_LOG(module, vdlDebugTrace, "Called.\n");
    return send<messages::TvServiceSwapWinReq>(ids, request);
}

int Proxy::tvServiceStreamInfoReq(frame::MsgIds& ids, const frame::TransportInfo&,
                                  const TvServiceStreamInfoReq_t& request) {
    GENRPC_LOG(module, vdlDebugTrace, "Called.\n");
    return send<messages::TvServiceStreamInfoReq>(ids, request);
}

int Proxy::tvServiceAudioReq(frame::MsgIds& ids, const frame::TransportInfo&, const TvServiceAudioReq_t& request) {
    GENRPC_LOG(module, vdlDebugTrace, "Called.\n");
    return send<messages::TvServiceAudioReq>(ids, request);
}

int Proxy::tvServiceSubtitleReq(frame::MsgIds& ids, const frame::TransportInfo&,
                                const TvServiceSubtitleReq_t& request) {
    GENRPC_LOG(module, vdlDebugTrace, "Called.\n");
    return send<messages::TvServiceSubtitleReq>(ids, request);
}

int Proxy::tvServiceVideoReq(frame::MsgIds& ids, const frame::TransportInfo&, const TvServiceVideoReq_t& request) {
    GENRPC_LOG(module, vdlDebugTrace, "Called.\n");
    return send<messages::TvServiceVideoReq>(ids, request);
}

int Proxy::tvServiceTeletextReq(frame::MsgIds& ids, const frame::TransportInfo&,
                                const TvServiceTeletextReq_t& request) {
    GENRPC_LOG(module, vdlDebugTrace, "Called.\n");
    return send<messages::TvServiceTeletextReq>(ids, request);
}

int Proxy::tvServiceInfoReq(frame::MsgIds& ids, const frame::TransportInfo&) {
    GENRPC_LOG(module, vdlDebugTrace, "Called.\n");
    return send<messages::TvServiceInfoReq>(ids);
}

int Proxy::tvServiceAskReleaseReq(frame::MsgIds& ids, const frame::TransportInfo&,
                                  const TvServiceAskReleaseReq_t& request) {
    GENRPC_LOG(module, vdlDebugTrace, "Called.\n");
    return send<messages::TvServiceAskReleaseReq>(ids, request);
}

int Proxy::tvServiceSendKeyReq(frame::MsgIds& ids, const frame::TransportInfo&, const std::string& key) {
    GENRPC_LOG(module, vdlDebugTrace, "Called.\n");
    return send<messages::TvServiceSendKeyReq>(ids, key);
}

int Proxy::tvServiceSListChangedInd(frame::MsgIds& ids, const frame::TransportInfo&,
                                    const TvServiceSListChangedInd_t& indication) {
    GENRPC_LOG(module, vdlDebugTrace, "Called.\n");
    return send<messages::TvServiceSListChangedInd>(ids, indication);
}

int Proxy::tvServiceTryRunReq(frame::MsgIds& ids, const frame::TransportInfo&,
                              const TvServiceTryRunRequestParams_t& params) {
    GENRPC_LOG(module, vdlDebugTrace, "Called.\n");
    return send<messages::TvServiceTryRunReq>(ids, params);
}

int Proxy::setParentalLockInfo(frame::MsgIds& ids, const frame::TransportInfo&,
                               const TvServiceParentalLockInfo_t& info) {
    GENRPC_LOG(module, vdlDebugTrace, "Called.\n");
    return send<messages::SetParentalLockInfo>(ids, info);
}

int Proxy::mtsAudioChangeReq(frame::MsgIds& ids, const frame::TransportInfo&, MtsAudioTrack_t track) {
    GENRPC_LOG(module, vdlDebugTrace, "Called.\n");
    return send<messages::MtsAudioChangeReq>(ids, track);
}

int Proxy::setCasService(frame::MsgIds& ids, const frame::TransportInfo&, TvServiceCasServiceType_t type) {
    GENRPC_LOG(module, vdlDebugTrace, "Called.\n");
    return send<messages::SetCasService>(ids, type);
}

int Proxy::requestPackagesReq(frame::MsgIds& ids, const frame::TransportInfo&, reqeustOadType_t type,
                              const std::string& packages) {
    GENRPC_LOG(module, vdlDebugTrace, "Called.\n");
    return send<messages::RequestPackagesReq>(ids, type, packages);
}

int Proxy::tvServiceSourceChanged(frame::MsgIds& ids, const frame::TransportInfo&, const std::string& source) {
    GENRPC_LOG(module, vdlDebugTrace, "Called.\n");
    return send<messages::TvServiceSourceChanged>(ids, source);
}
// end generated

// ---- notifications; the misspelt log text is intended and must stay ----

// begin generated: handlers
int Proxy::callTvServiceInfo(const frame::MsgMeta&, const frame::TransportInfo& transport, const void* payload,
                             void* context) {
    GENRPC_LOG(module, vdlDebugTrace, "Eneter\n");
    auto& proxy = *static_cast<Proxy*>(context);
    proxy.deliver<messages::TvServiceInfo>(&ClientInterface::tvServiceInfo, transport, payload);
    GENRPC_LOG(module, vdlDebugTrace, "Exit\n");
    return 0;
}

int Proxy::callTvServiceConflictInfo(const frame::MsgMeta&, const frame::TransportInfo& transport, const void* payload,
                                     void* context) {
    GENRPC_LOG(module, vdlDebugTrace, "Eneter\n");
    auto& proxy = *static_cast<Proxy*>(context);
    proxy.deliver<messages::TvServiceConflictInfo>(&ClientInterface::tvServiceConflictInfo, transport, payload);
    GENRPC_LOG(module, vdlDebugTrace, "Exit\n");
    return 0;
}

int Proxy::callTvServiceSwapWinInfo(const frame::MsgMeta&, const frame::TransportInfo& transport, const void* payload,
                                    void* context) {
    GENRPC_LOG(module, vdlDebugTrace, "Eneter\n");
    auto& proxy = *static_cast<Proxy*>(context);
    proxy.deliver<messages::TvServiceSwapWinInfo>(&ClientInterface::tvServiceSwapWinInfo, transport, payload);
    GENRPC_LOG(module, vdlDebugTrace, "Exit\n");
    return 0;
}

int Proxy::callTvServiceStreamInfo(const frame::MsgMeta&, const frame::TransportInfo& transport, const void* payload,
                                   void* context) {
    GENRPC_LOG(module, vdlDebugTrace, "Eneter\n");
    auto& proxy = *static_cast<Proxy*>(context);
    proxy.deliver<messages::TvServiceStreamInfo>(&ClientInterface::tvServiceStreamInfo, transport, payload);
    GENRPC_LOG(module, vdlDebugTrace, "Exit\n");
    return 0;
}

int Proxy::callTvServiceAudioInfo(const frame::MsgMeta&, const frame::TransportInfo& transport, const void* payload,
                                  void* context) {
    GENRPC_LOG(module, vdlDebugTrace, "Eneter\n");
    auto& proxy = *static_cast<Proxy*>(context);
    proxy.deliver<messages::TvServiceAudioInfo>(&ClientInterface::tvServiceAudioInfo, transport, payload);
    GENRPC_LOG(module, vdlDebugTrace, "Exit\n");
    return 0;
}

int Proxy::callTvServiceSubtitleInfo(const frame::MsgMeta&, const frame::TransportInfo& transport, const void* payload,
                                     void* context) {
    GENRPC_LOG(module, vdlDebugTrace, "Eneter\n");
    auto& proxy = *static_cast<Proxy*>(context);
    proxy.deliver<messages::TvServiceSubtitleInfo>(&ClientInterface::tvServiceSubtitleInfo, transport, payload);
    GENRPC_LOG(module, vdlDebugTrace, "Exit\n");
    return 0;
}

int Proxy::callTvServiceVideoInfo(const frame::MsgMeta&, const frame::TransportInfo& transport, const void* payload,
                                  void* context) {
    GENRPC_LOG(module, vdlDebugTrace, "Eneter\n");
    auto& proxy = *static_cast<Proxy*>(context);
    proxy.deliver<messages::TvServiceVideoInfo>(&ClientInterface::tvServiceVideoInfo, transport, payload);
    GENRPC_LOG(module, vdlDebugTrace, "Exit\n");
    return 0;
}

int Proxy::callTvServiceTeletextInfo(const frame::MsgMeta&, const frame::TransportInfo& transport, const void* payload,
                                     void* context) {
    GENRPC_LOG(module, vdlDebugTrace, "Eneter\n");
    auto& proxy = *static_cast<Proxy*>(context);
    proxy.deliver<messages::TvServiceTeletextInfo>(&ClientInterface::tvServiceTeletextInfo, transport, payload);
    GENRPC_LOG(module, vdlDebugTrace, "Exit\n");
    return 0;
}

int Proxy::callTvServiceAskReleaseInfo(const frame::MsgMeta&, const frame::TransportInfo& transport,
                                       const void* payload, void* context) {
    GENRPC_LOG(module, vdlDebugTrace, "Eneter\n");
    auto& proxy = *static_cast<Proxy*>(context);
    proxy.deliver<messages::TvServiceAskReleaseInfo>(&ClientInterface::tvServiceAskReleaseInfo, transport, payload);
    GENRPC_LOG(module, vdlDebugTrace, "Exit\n");
    return 0;
}

int Proxy::callTvServiceAskReleaseConf(const frame::MsgMeta&, const frame::TransportInfo& transport,
                                       const void* payload, void* context) {
    GENRPC_LOG(module, vdlDebugTrace, "Eneter\n");
    auto& proxy = *static_cast<Proxy*>(context);
    proxy.deliver<messages::TvServiceAskReleaseConf>(&ClientInterface::tvServiceAskReleaseConf, transport, payload);
    GENRPC_LOG(module, vdlDebugTrace, "Exit\n");
    return 0;
}

int Proxy::callTvServiceStatusInfo(const frame::MsgMeta&, const frame::TransportInfo& transport, const void* payload,
                                   void* context) {
    GENRPC_LOG(module, vdlDebugTrace, "Eneter\n");
    auto& proxy = *static_cast<Proxy*>(context);
    proxy.deliver<messages::TvServiceStatusInfo>(&ClientInterface::tvServiceStatusInfo, transport, payload);
    GENRPC_LOG(module, vdlDebugTrace, "Exit\n");
    return 0;
}

int Proxy::callTvServiceNetworkChangeMsg(const frame::MsgMeta&, const frame::TransportInfo& transport,
                                         const void* payload, void* context) {
    GENRPC_LOG(module, vdlDebugTrace, "Eneter\n");
    auto& proxy = *static_cast<Proxy*>(context);
    proxy.deliver<messages::TvServiceNetworkChangeMsg>(&ClientInterface::tvServiceNetworkChangeMsg, transport, payload);
    GENRPC_LOG(module, vdlDebugTrace, "Exit\n");
    return 0;
}

int Proxy::callTvServiceTunerResult(const frame::MsgMeta&, const frame::TransportInfo& transport, const void* payload,
                                    void* context) {
    GENRPC_LOG(module, vdlDebugTrace, "Eneter\n");
    auto& proxy = *static_cast<Proxy*>(context);
    proxy.deliver<messages::TvServiceTunerResult>(&ClientInterface::tvServiceTunerResult, transport, payload);
    GENRPC_LOG(module, vdlDebugTrace, "Exit\n");
    return 0;
}

int Proxy::callTvServiceTunerStatusMessage(const frame::MsgMeta&, const frame::TransportInfo& transport,
                                           const void* payload, void* context) {
    GENRPC_LOG(module, vdlDebugTrace, "Eneter\n");
    auto& proxy = *static_cast<Proxy*>(context);
    proxy.deliver<messages::TvServiceTunerStatusMessage>(&ClientInterface::tvServiceTunerStatusMessage, transport,
                                                         payload);
    GENRPC_LOG(module, vdlDebugTrace, "Exit\n");
    return 0;
}

int Proxy::callTvServiceBroadcastApplictionInfo(const frame::MsgMeta&, const frame::TransportInfo& transport,
                                                const void* payload, void* context) {
    GENRPC_LOG(module, vdlDebugTrace, "Eneter\n");
    auto& proxy = *static_cast<Proxy*>(context);
    proxy.deliver<messages::TvServiceBroadcastApplictionInfo>(&ClientInterface::tvServiceBroadcastApplictionInfo,
                                                              transport, payload);
    GENRPC_LOG(module, vdlDebugTrace, "Exit\n");
    return 0;
}

int Proxy::callTvServiceUriLinkageInfo(const frame::MsgMeta&, const frame::TransportInfo& transport,
                                       const void* payload, void* context) {
    GENRPC_LOG(module, vdlDebugTrace, "Eneter\n");
    auto& proxy = *static_cast<Proxy*>(context);
    proxy.deliver<messages::TvServiceUriLinkageInfo>(&ClientInterface::tvServiceUriLinkageInfo, transport, payload);
    GENRPC_LOG(module, vdlDebugTrace, "Exit\n");
    return 0;
}

int Proxy::callTvServiceCiAncillaryDataInfo(const frame::MsgMeta&, const frame::TransportInfo& transport,
                                            const void* payload, void* context) {
    GENRPC_LOG(module, vdlDebugTrace, "Eneter\n");
    auto& proxy = *static_cast<Proxy*>(context);
    proxy.deliver<messages::TvServiceCiAncillaryDataInfo>(&ClientInterface::tvServiceCiAncillaryDataInfo, transport,
                                                          payload);
    GENRPC_LOG(module, vdlDebugTrace, "Exit\n");
    return 0;
}

int Proxy::callTvServiceInstalledInfo(const frame::MsgMeta&, const frame::TransportInfo& transport, const void* payload,
                                      void* context) {
    GENRPC_LOG(module, vdlDebugTrace, "Eneter\n");
    auto& proxy = *static_cast<Proxy*>(context);
    proxy.deliver<messages::TvServiceInstalledInfo>(&ClientInterface::tvServiceInstalledInfo, transport, payload);
    GENRPC_LOG(module, vdlDebugTrace, "Exit\n");
    return 0;
}

int Proxy::callTvServicePlayInfo(const frame::MsgMeta&, const frame::TransportInfo& transport, const void* payload,
                                 void* context) {
    GENRPC_LOG(module, vdlDebugTrace, "Eneter\n");
    auto& proxy = *static_cast<Proxy*>(context);
    proxy.deliver<messages::TvServicePlayInfo>(&ClientInterface::tvServicePlayInfo, transport, payload);
    GENRPC_LOG(module, vdlDebugTrace, "Exit\n");
    return 0;
}

int Proxy::callTvServiceFoundNewOadPacket(const frame::MsgMeta&, const frame::TransportInfo& transport,
                                          const void* payload, void* context) {
    GENRPC_LOG(module, vdlDebugTrace, "Eneter\n");
    auto& proxy = *static_cast<Proxy*>(context);
    proxy.deliver<messages::TvServiceFoundNewOadPacket>(&ClientInterface::tvServiceFoundNewOadPacket, transport,
                                                        payload);
    GENRPC_LOG(module, vdlDebugTrace, "Exit\n");
    return 0;
}

int Proxy::callTvServiceCiSasMessageInfo(const frame::MsgMeta&, const frame::TransportInfo& transport,
                                         const void* payload, void* context) {
    GENRPC_LOG(module, vdlDebugTrace, "Eneter\n");
    auto& proxy = *static_cast<Proxy*>(context);
    proxy.deliver<messages::TvServiceCiSasMessageInfo>(&ClientInterface::tvServiceCiSasMessageInfo, transport, payload);
    GENRPC_LOG(module, vdlDebugTrace, "Exit\n");
    return 0;
}

int Proxy::callTvServiceCcInfoNotify(const frame::MsgMeta&, const frame::TransportInfo& transport, const void* payload,
                                     void* context) {
    GENRPC_LOG(module, vdlDebugTrace, "Eneter\n");
    auto& proxy = *static_cast<Proxy*>(context);
    proxy.deliver<messages::TvServiceCcInfoNotify>(&ClientInterface::tvServiceCcInfoNotify, transport, payload);
    GENRPC_LOG(module, vdlDebugTrace, "Exit\n");
    return 0;
}

int Proxy::callTvServiceMtsAudioTrackInfoNotify(const frame::MsgMeta&, const frame::TransportInfo& transport,
                                                const void* payload, void* context) {
    GENRPC_LOG(module, vdlDebugTrace, "Eneter\n");
    auto& proxy = *static_cast<Proxy*>(context);
    proxy.deliver<messages::TvServiceMtsAudioTrackInfoNotify>(&ClientInterface::tvServiceMtsAudioTrackInfoNotify,
                                                              transport, payload);
    GENRPC_LOG(module, vdlDebugTrace, "Exit\n");
    return 0;
}

int Proxy::callTvserviceOadStatusNotify(const frame::MsgMeta&, const frame::TransportInfo& transport,
                                        const void* payload, void* context) {
    GENRPC_LOG(module, vdlDebugTrace, "Eneter\n");
    auto& proxy = *static_cast<Proxy*>(context);
    proxy.deliver<messages::TvserviceOadStatusNotify>(&ClientInterface::tvserviceOadStatusNotify, transport, payload);
    GENRPC_LOG(module, vdlDebugTrace, "Exit\n");
    return 0;
}

int Proxy::callTvserviceOadProgressNotify(const frame::MsgMeta&, const frame::TransportInfo& transport,
                                          const void* payload, void* context) {
    GENRPC_LOG(module, vdlDebugTrace, "Eneter\n");
    auto& proxy = *static_cast<Proxy*>(context);
    proxy.deliver<messages::TvserviceOadProgressNotify>(&ClientInterface::tvserviceOadProgressNotify, transport,
                                                        payload);
    GENRPC_LOG(module, vdlDebugTrace, "Exit\n");
    return 0;
}
// end generated

} // namespace tvservice

extern "C" GENRPC_EXPORT void** CreateTvServiceProxy() {
    GENRPC_LOG(genrpc::TvProxyLog, vdlDebugTrace, "Called.\n");
    return genrpc::arrayOf<tvservice::Proxy>();
}
