// The adapter: the receiver's applications use it to show something on a display terminal.
//
// An application looks the adapter up under interfaceKey and calls it directly:
//
//     boost::shared_ptr<frame::Interface> reference;
//     if (frame::Process::getInstance()->getInterfaceReference(reference, ModelTvServiceAdapter::interfaceKey) == 0)
//         adapter = reference->get<tvservice::ModelTvServiceAdapter>();
//
// Requests may come from any thread once the adapter has started with both services' proxies in its process. The
// adapter lives as long as the process.
#pragma once

#include <frame/abstract-application.h>
#include <tvservice-adapter/bundle-status.h>
#include <tvservice/interfaces.h>

#include <boost/shared_ptr.hpp>
#include <string>
#include <vector>

namespace mmservice {
class ServiceInterface;
}

namespace tvservice {

class MmServiceClient;
class TvServiceClient;

class GENRPC_EXPORT ModelTvServiceAdapter : public frame::AbstractApplication {
public:
    static constexpr const char* interfaceKey = "orvel.lm.interfaces.tvservice-wrapper";

    ModelTvServiceAdapter();
    ~ModelTvServiceAdapter() override;

    int performSetupDone() override;
    int performStarting() override;
    int performStopping() override;

    // Registers, or removes, a client for answers and notifications. Clients are identified by their object, whichever
    // pointer holds it. Returns 0, or -1 for a registered, or unknown, client. Not from inside a notification.
    int addClient(boost::shared_ptr<ClientInterface> client);
    int removeClient(boost::shared_ptr<ClientInterface> client);

    // Plays or stops on terminals: one bundle, executed after those before it. The requests have one common request id
    // or none (the adapter then generates one); mixed ids end the process. Returns 0 once the bundle is queued; clients
    // receive the outcome as tvServiceInfo. A bundle whose answers are missing for more than 5 seconds is dropped
    // without a notification, but only after a second without a new request: all bundles behind it wait until then.
    // Requests that follow key presses should go through a Zapper (zapper.h).
    int tvServiceReq(frame::MsgIds& ids, const frame::TransportInfo& transport,
                     const std::vector<TvServiceReq_t>& requests);

    // All other requests are passed unchanged to the TV service. They return the result of sending (0 once the request
    // is on its way), and clients receive the outcome as the notification named. Not before the adapter has started
    // with the TV service's proxy in its process.

    // begin generated: requests
    // Swaps what two windows show: tvServiceSwapWinInfo.
    int tvServiceSwapWinReq(frame::MsgIds& ids, const frame::TransportInfo& transport,
                            const TvServiceSwapWinReq_t& request);

    // Asks about a stream: tvServiceStreamInfo.
    int tvServiceStreamInfoReq(frame::MsgIds& ids, const frame::TransportInfo& transport,
                               const TvServiceStreamInfoReq_t& request);

    // Chooses a terminal's audio track: tvServiceAudioInfo.
    int tvServiceAudioReq(frame::MsgIds& ids, const frame::TransportInfo& transport,
                          const TvServiceAudioReq_t& request);

    // Chooses a terminal's subtitles: tvServiceSubtitleInfo.
    int tvServiceSubtitleReq(frame::MsgIds& ids, const frame::TransportInfo& transport,
                             const TvServiceSubtitleReq_t& request);

    // Chooses a terminal's video track: tvServiceVideoInfo.
    int tvServiceVideoReq(frame::MsgIds& ids, const frame::TransportInfo& transport,
                          const TvServiceVideoReq_t& request);

    // Chooses a terminal's teletext: tvServiceTeletextInfo.
    int tvServiceTeletextReq(frame::MsgIds& ids, const frame::TransportInfo& transport,
                             const TvServiceTeletextReq_t& request);

    // Asks what the terminals show: tvServiceInfo.
    int tvServiceInfoReq(frame::MsgIds& ids, const frame::TransportInfo& transport);

    // Negotiates the release of a resource: tvServiceAskReleaseInfo, tvServiceAskReleaseConf.
    int tvServiceAskReleaseReq(frame::MsgIds& ids, const frame::TransportInfo& transport,
                               const TvServiceAskReleaseReq_t& request);

    // Sends a key to the application in the broadcast: tvServiceBroadcastApplictionInfo.
    int tvServiceSendKeyReq(frame::MsgIds& ids, const frame::TransportInfo& transport, const std::string& key);

    // The list of services has changed: tvServiceStatusInfo.
    int tvServiceSListChangedInd(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                 const TvServiceSListChangedInd_t& indication);

    // Tests whether something could be played: tvServicePlayInfo.
    int tvServiceTryRunReq(frame::MsgIds& ids, const frame::TransportInfo& transport,
                           const TvServiceTryRunRequestParams_t& params);

    // Locks or unlocks a terminal: tvServiceStatusInfo.
    int setParentalLockInfo(frame::MsgIds& ids, const frame::TransportInfo& transport,
                            const TvServiceParentalLockInfo_t& info);

    // Chooses the audio track of a multichannel sound broadcast: tvServiceMtsAudioTrackInfoNotify.
    int mtsAudioChangeReq(frame::MsgIds& ids, const frame::TransportInfo& transport, MtsAudioTrack_t track);

    // Chooses the conditional access service: tvServiceCiSasMessageInfo.
    virtual int setCasService(frame::MsgIds& ids, const frame::TransportInfo& transport,
                              TvServiceCasServiceType_t type);

    // Fetches packages over the air: tvserviceOadStatusNotify, tvserviceOadProgressNotify.
    int requestPackagesReq(frame::MsgIds& ids, const frame::TransportInfo& transport, reqeustOadType_t type,
                           const std::string& packages);

    // The source of the signal has changed: tvServiceNetworkChangeMsg.
    int tvServiceSourceChanged(frame::MsgIds& ids, const frame::TransportInfo& transport, const std::string& source);
    // end generated

    // The current bundle and the queued ones, for users and tools.
    std::vector<BundleStatus> bundles() const;

private:
    // Written while starting, read afterwards.
    boost::shared_ptr<MmServiceClient> mmClient;
    boost::shared_ptr<TvServiceClient> tvClient;
    ServiceInterface* tvService = nullptr; // the framework keeps the proxies alive
    mmservice::ServiceInterface* mmService = nullptr;
};

} // namespace tvservice
