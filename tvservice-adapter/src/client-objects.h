// The adapter's two client objects, which receive everything that the services send.
//
// Notifications arrive on the framework's receiving thread, finished answers on the thread that delivered the last of
// them, registrations on any thread. clientMutex serialises all of them and is held while clients are called. A client
// must therefore not register or remove clients from inside a notification.
#pragma once

#include <genrpc/client-list.h>
#include <mmservice/interfaces.h>
#include <tvservice/interfaces.h>

#include <thread-safety/mutex.h>

namespace tvservice {

// Receives the TV service's notifications, and is the registry of the adapter's clients.
class TvServiceClient : public ClientInterface {
public:
    ~TvServiceClient() override;

    // Passes the answer to play and stop requests to the resource manager, which decides what clients receive.
    int tvServiceInfo(frame::MsgIds& ids, const frame::TransportInfo& transport,
                      const std::vector<TvServiceInfo_t>& infos) override;
    // These pass all other notifications unchanged to every client.
    // begin generated: news
    int tvServiceConflictInfo(frame::MsgIds& ids, const frame::TransportInfo& transport,
                              const TvServiceConflictInfo_t& info) override;
    int tvServiceSwapWinInfo(frame::MsgIds& ids, const frame::TransportInfo& transport,
                             const TvServiceSwapWinInfo_t& info) override;
    int tvServiceStreamInfo(frame::MsgIds& ids, const frame::TransportInfo& transport,
                            const TvServiceStreamInfo_t& info) override;
    int tvServiceAudioInfo(frame::MsgIds& ids, const frame::TransportInfo& transport,
                           const TvServiceAudioInfo_t& info) override;
    int tvServiceSubtitleInfo(frame::MsgIds& ids, const frame::TransportInfo& transport,
                              const TvServiceSubtitleInfo_t& info) override;
    int tvServiceVideoInfo(frame::MsgIds& ids, const frame::TransportInfo& transport,
                           const TvServiceVideoInfo_t& info) override;
    int tvServiceTeletextInfo(frame::MsgIds& ids, const frame::TransportInfo& transport,
                              const TvServiceTeletextInfo_t& info) override;
    int tvServiceAskReleaseInfo(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                const TvServiceAskReleaseInfo_t& info) override;
    int tvServiceAskReleaseConf(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                const TvServiceAskReleaseConf_t& confirmation) override;
    int tvServiceStatusInfo(frame::MsgIds& ids, const frame::TransportInfo& transport,
                            const TvServiceStatusInfo_t& info) override;
    int tvServiceNetworkChangeMsg(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                  const TvServiceNetworkChangeMessage_t& message) override;
    int tvServiceTunerResult(frame::MsgIds& ids, const frame::TransportInfo& transport,
                             const TvServiceTunerResult_t& result) override;
    int tvServiceTunerStatusMessage(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                    const TvServiceTunerStatusMessage_t& message) override;
    int tvServiceBroadcastApplictionInfo(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                         std::uint32_t application) override;
    int tvServiceUriLinkageInfo(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                const std::vector<TvServiceUriLinkageInfo_t>& infos) override;
    int tvServiceCiAncillaryDataInfo(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                     const TvServiceCiAncillaryDataInfo_t& info) override;
    int tvServiceInstalledInfo(frame::MsgIds& ids, const frame::TransportInfo& transport,
                               const TvServiceInstalledInfo_t& info) override;
    int tvServicePlayInfo(frame::MsgIds& ids, const frame::TransportInfo& transport,
                          const TvServicePlayInfo_t& info) override;
    int tvServiceFoundNewOadPacket(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                   std::uint32_t packet) override;
    int tvServiceCiSasMessageInfo(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                  const TvServiceCiCasMessageInfo_t& info) override;
    int tvServiceCcInfoNotify(frame::MsgIds& ids, const frame::TransportInfo& transport,
                              const TvServiceCcInfo_t& info) override;
    int tvServiceMtsAudioTrackInfoNotify(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                         MtsAudioTrack_t track) override;
    int tvserviceOadStatusNotify(frame::MsgIds& ids, const frame::TransportInfo& transport, NotifyOadStatus_t status,
                                 const std::string& text) override;
    int tvserviceOadProgressNotify(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                   std::int32_t progress) override;
    // end generated

    // Delivers the resource manager's answers to each client as tvServiceInfo.
    virtual int tvServiceInfocb(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                const std::vector<TvServiceInfo_t>& infos);
    // 0, or -1 for a registered, or unknown, client.
    virtual int addClient(boost::shared_ptr<ClientInterface> client);
    virtual int removeClient(boost::shared_ptr<ClientInterface> client);

private:
    genrpc::ClientList<ClientInterface> clients TVSA_GUARDED_BY(clientMutex);
    thread_safety::Mutex clientMutex;
};

// Receives the MM service's notifications. It has a registry like the other one, but delivers nothing to its clients.
class MmServiceClient : public mmservice::ClientInterface {
public:
    ~MmServiceClient() override;

    // Converts the MM service's answer and passes it to the resource manager.
    int mmServiceInfo(frame::MsgIds& ids, const frame::TransportInfo& transport,
                      const std::vector<mmservice::MMServiceInfo_t>& infos) override;

    virtual int addClient(boost::shared_ptr<mmservice::ClientInterface> client);
    virtual int removeClient(boost::shared_ptr<mmservice::ClientInterface> client);

private:
    genrpc::ClientList<mmservice::ClientInterface> clients TVSA_GUARDED_BY(clientMutex);
    thread_safety::Mutex clientMutex;
};

} // namespace tvservice
