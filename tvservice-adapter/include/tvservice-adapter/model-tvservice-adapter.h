// The adapter: what the receiver's applications use to have something shown on a display terminal.
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

    // Registers who wants answers and notifications. Clients are named by the object, whichever pointer holds it. 0, or
    // -1 for a client that is known already, that is not known. Not from inside a notification.
    int addClient(boost::shared_ptr<ClientInterface> client);
    int removeClient(boost::shared_ptr<ClientInterface> client);

    // Plays or stops on terminals: one bundle, carried out after those before it. The requests carry one common request
    // id or none (the adapter then makes one); mixed ids end the process. 0 once the bundle is queued; the outcome
    // comes to the clients as tvServiceInfo. A bundle whose answers stay out for more than 5 seconds is dropped without
    // a notification, but not before a second has passed without a new request: all bundles behind it wait until then.
    // What follows key presses asks through a Zapper (zapper.h).
    int tvServiceReq(frame::MsgIds& ids, const frame::TransportInfo& transport,
                     const std::vector<TvServiceReq_t>& requests);

    // All other requests pass unchanged to the TV service: they answer what sending them answered (0 once the request
    // is on its way) and what becomes of them comes to the clients as the notification named. Not before the adapter
    // has started with the TV service's proxy in its process.

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

    // A key for the application that the broadcast brings along: tvServiceBroadcastApplictionInfo.
    int tvServiceSendKeyReq(frame::MsgIds& ids, const frame::TransportInfo& transport, const std::string& key);

    // The list of services has changed: tvServiceStatusInfo.
    int tvServiceSListChangedInd(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                 const TvServiceSListChangedInd_t& indication);

    // Tries whether something could be played: tvServicePlayInfo.
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

    // The bundles under way and waiting, for people and tools.
    std::vector<BundleStatus> bundles() const;

private:
    // Written while starting, read afterwards.
    boost::shared_ptr<MmServiceClient> mmClient;
    boost::shared_ptr<TvServiceClient> tvClient;
    ServiceInterface* tvService = nullptr; // the framework keeps the proxies alive
    mmservice::ServiceInterface* mmService = nullptr;
};

} // namespace tvservice
