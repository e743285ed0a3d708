// Passes notifications on to every client in order, with the mutex held. The results are ignored.
#include "client-objects.h"

namespace tvservice {

// begin generated: news
int TvServiceClient::tvServiceConflictInfo(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                           const TvServiceConflictInfo_t& info) {
    const thread_safety::LockGuard lock(clientMutex);
    for (const auto& client : clients) client->tvServiceConflictInfo(ids, transport, info);
    return 0;
}

int TvServiceClient::tvServiceSwapWinInfo(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                          const TvServiceSwapWinInfo_t& info) {
    const thread_safety::LockGuard lock(clientMutex);
    for (const auto& client : clients) client->tvServiceSwapWinInfo(ids, transport, info);
    return 0;
}

int TvServiceClient::tvServiceStreamInfo(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                         const TvServiceStreamInfo_t& info) {
    const thread_safety::LockGuard lock(clientMutex);
    for (const auto& client : clients) client->tvServiceStreamInfo(ids, transport, info);
    return 0;
}

int TvServiceClient::tvServiceAudioInfo(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                        const TvServiceAudioInfo_t& info) {
    const thread_safety::LockGuard lock(clientMutex);
    for (const auto& client : clients) client->tvServiceAudioInfo(ids, transport, info);
    return 0;
}

int TvServiceClient::tvServiceSubtitleInfo(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                           const TvServiceSubtitleInfo_t& info) {
    const thread_safety::LockGuard lock(clientMutex);
    for (const auto& client : clients) client->tvServiceSubtitleInfo(ids, transport, info);
    return 0;
}

int TvServiceClient::tvServiceVideoInfo(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                        const TvServiceVideoInfo_t& info) {
    const thread_safety::LockGuard lock(clientMutex);
    for (const auto& client : clients) client->tvServiceVideoInfo(ids, transport, info);
    return 0;
}

int TvServiceClient::tvServiceTeletextInfo(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                           const TvServiceTeletextInfo_t& info) {
    const thread_safety::LockGuard lock(clientMutex);
    for (const auto& client : clients) client->tvServiceTeletextInfo(ids, transport, info);
    return 0;
}

int TvServiceClient::tvServiceAskReleaseInfo(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                             const TvServiceAskReleaseInfo_t& info) {
    const thread_safety::LockGuard lock(clientMutex);
    for (const auto& client : clients) client->tvServiceAskReleaseInfo(ids, transport, info);
    return 0;
}

int TvServiceClient::tvServiceAskReleaseConf(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                             const TvServiceAskReleaseConf_t& confirmation) {
    const thread_safety::LockGuard lock(clientMutex);
    for (const auto& client : clients) client->tvServiceAskReleaseConf(ids, transport, confirmation);
    return 0;
}

int TvServiceClient::tvServiceStatusInfo(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                         const TvServiceStatusInfo_t& info) {
    const thread_safety::LockGuard lock(clientMutex);
    for (const auto& client : clients) client->tvServiceStatusInfo(ids, transport, info);
    return 0;
}

int TvServiceClient::tvServiceNetworkChangeMsg(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                               const TvServiceNetworkChangeMessage_t& message) {
    const thread_safety::LockGuard lock(clientMutex);
    for (const auto& client : clients) client->tvServiceNetworkChangeMsg(ids, transport, message);
    return 0;
}

int TvServiceClient::tvServiceTunerResult(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                          const TvServiceTunerResult_t& result) {
    const thread_safety::LockGuard lock(clientMutex);
    for (const auto& client : clients) client->tvServiceTunerResult(ids, transport, result);
    return 0;
}

int TvServiceClient::tvServiceTunerStatusMessage(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                                 const TvServiceTunerStatusMessage_t& message) {
    const thread_safety::LockGuard lock(clientMutex);
    for (const auto& client : clients) client->tvServiceTunerStatusMessage(ids, transport, message);
    return 0;
}

int TvServiceClient::tvServiceBroadcastApplictionInfo(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                                      std::uint32_t application) {
    const thread_safety::LockGuard lock(clientMutex);
    for (const auto& client : clients) client->tvServiceBroadcastApplictionInfo(ids, transport, application);
    return 0;
}

int TvServiceClient::tvServiceUriLinkageInfo(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                             const std::vector<TvServiceUriLinkageInfo_t>& infos) {
    const thread_safety::LockGuard lock(clientMutex);
    for (const auto& client : clients) client->tvServiceUriLinkageInfo(ids, transport, infos);
    return 0;
}

int TvServiceClient::tvServiceCiAncillaryDataInfo(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                                  const TvServiceCiAncillaryDataInfo_t& info) {
    const thread_safety::LockGuard lock(clientMutex);
    for (const auto& client : clients) client->tvServiceCiAncillaryDataInfo(ids, transport, info);
    return 0;
}

int TvServiceClient::tvServiceInstalledInfo(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                            const TvServiceInstalledInfo_t& info) {
    const thread_safety::LockGuard lock(clientMutex);
    for (const auto& client : clients) client->tvServiceInstalledInfo(ids, transport, info);
    return 0;
}

int TvServiceClient::tvServicePlayInfo(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                       const TvServicePlayInfo_t& info) {
    const thread_safety::LockGuard lock(clientMutex);
    for (const auto& client : clients) client->tvServicePlayInfo(ids, transport, info);
    return 0;
}

int TvServiceClient::tvServiceFoundNewOadPacket(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                                std::uint32_t packet) {
    const thread_safety::LockGuard lock(clientMutex);
    for (const auto& client : clients) client->tvServiceFoundNewOadPacket(ids, transport, packet);
    return 0;
}

int TvServiceClient::tvServiceCiSasMessageInfo(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                               const TvServiceCiCasMessageInfo_t& info) {
    const thread_safety::LockGuard lock(clientMutex);
    for (const auto& client : clients) client->tvServiceCiSasMessageInfo(ids, transport, info);
    return 0;
}

int TvServiceClient::tvServiceCcInfoNotify(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                           const TvServiceCcInfo_t& info) {
    const thread_safety::LockGuard lock(clientMutex);
    for (const auto& client : clients) client->tvServiceCcInfoNotify(ids, transport, info);
    return 0;
}

int TvServiceClient::tvServiceMtsAudioTrackInfoNotify(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                                      MtsAudioTrack_t track) {
    const thread_safety::LockGuard lock(clientMutex);
    for (const auto& client : clients) client->tvServiceMtsAudioTrackInfoNotify(ids, transport, track);
    return 0;
}

int TvServiceClient::tvserviceOadStatusNotify(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                              NotifyOadStatus_t status, const std::string& text) {
    const thread_safety::LockGuard lock(clientMutex);
    for (const auto& client : clients) client->tvserviceOadStatusNotify(ids, transport, status, text);
    return 0;
}

int TvServiceClient::tvserviceOadProgressNotify(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                                std::int32_t progress) {
    const thread_safety::LockGuard lock(clientMutex);
    for (const auto& client : clients) client->tvserviceOadProgressNotify(ids, transport, progress);
    return 0;
}
// end generated

} // namespace tvservice
