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
    // news.
    int tvServiceReq(frame::MsgIds& ids, const frame::TransportInfo& transport,
                     const std::vector<TvServiceReq_t>& requests);

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
