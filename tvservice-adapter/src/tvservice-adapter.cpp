#include "app-mmservice-proxy-main.h"
#include "app-tvservice-proxy-main.h"
#include "client-objects.h"
#include "conversion.h"
#include "ovshell.h"
#include "resource-manager.h"

#include <frame/process.h>
#include <genrpc/log.h>
#include <genrpc/proxy.h>
#include <tvservice-adapter/model-tvservice-adapter.h>

#include <boost/make_shared.hpp>

namespace tvservice {
namespace {

constexpr auto module = genrpc::AdapterLog;

} // namespace

// ---- conversion ----

void convertTvtoMm(const std::vector<TvServiceReq_t>& input, std::vector<mmservice::MMServiceReq_t>& output) {
    output.resize(input.size());
    for (std::size_t i = 0; i < input.size(); ++i) {
        const TvServiceReq_t& from = input[i];
        mmservice::MMServiceReq_t& to = output[i];
        to.terminal = {from.terminal.type, from.terminal.id};
        to.intParam1 = from.intParam1;
        to.intParam2 = from.intParam2;
        to.intParam3 = from.intParam3;
        to.uri = from.uri;
        to.uuid = from.uuid;
        to.strParam2 = from.strParam2;
        to.strParamList = from.strParamList;
        to.reqId = from.reqId;
        to.strParam3 = from.strParam3;
    }
}

void convertMmtoTv(const std::vector<mmservice::MMServiceInfo_t>& input, std::vector<TvServiceInfo_t>& output) {
    output.resize(input.size());
    for (std::size_t i = 0; i < input.size(); ++i) {
        const mmservice::MMServiceInfo_t& from = input[i];
        TvServiceInfo_t& to = output[i];
        to.terminal = {from.terminal.type, from.terminal.id};
        to.result = from.result;
        to.uri = from.uri;
        to.uuid = from.uuid;
        to.uuidAncestor = from.uuidAncestor;
        to.reqId = from.reqId;
    }
}

// ---- client objects ----

TvServiceClient::~TvServiceClient() {
    for (auto& client : clients) client.reset();
}

int TvServiceClient::tvServiceInfo(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                   const std::vector<TvServiceInfo_t>& infos) {
    GENRPC_LOG(module, vdlDebugTrace, "Called.\n");
    return ResManager::getResMInstance()->TVServiceInfo(ids, transport, infos);
}

int TvServiceClient::tvServiceInfocb(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                     const std::vector<TvServiceInfo_t>& infos) {
    const thread_safety::LockGuard lock(clientMutex);
    for (const auto& client : clients) client->tvServiceInfo(ids, transport, infos);
    return 0;
}

int TvServiceClient::addClient(boost::shared_ptr<ClientInterface> client) {
    const thread_safety::LockGuard lock(clientMutex);
    return genrpc::addClient(clients, client, -1, {module, GENRPC_HERE});
}

int TvServiceClient::removeClient(boost::shared_ptr<ClientInterface> client) {
    const thread_safety::LockGuard lock(clientMutex);
    return genrpc::removeClient(clients, client, -1, {module, GENRPC_HERE});
}

MmServiceClient::~MmServiceClient() {
    for (auto& client : clients) client.reset();
}

int MmServiceClient::mmServiceInfo(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                   const std::vector<mmservice::MMServiceInfo_t>& infos) {
    GENRPC_LOG(module, vdlDebugTrace, "Called mmServiceInfo size %d.\n", static_cast<int>(infos.size()));
    std::vector<TvServiceInfo_t> converted;
    convertMmtoTv(infos, converted);
    return ResManager::getResMInstance()->MMServiceInfo(ids, transport, converted);
}

int MmServiceClient::addClient(boost::shared_ptr<mmservice::ClientInterface> client) {
    const thread_safety::LockGuard lock(clientMutex);
    return genrpc::addClient(clients, client, -1, {module, GENRPC_HERE});
}

int MmServiceClient::removeClient(boost::shared_ptr<mmservice::ClientInterface> client) {
    const thread_safety::LockGuard lock(clientMutex);
    return genrpc::removeClient(clients, client, -1, {module, GENRPC_HERE});
}

// ---- the adapter's life cycle ----

ModelTvServiceAdapter::ModelTvServiceAdapter() { GENRPC_LOG(module, vdlDebugTrace, "Called.\n"); }

ModelTvServiceAdapter::~ModelTvServiceAdapter() {
    GENRPC_LOG(module, vdlDebugTrace, "Called.\n");
    // The adapter is not a service interface, so this unregisters nothing: its own registration lasts as long as the
    // process, like the pointers that applications got through it.
    unregisterInterface(dynamic_cast<ServiceInterface*>(static_cast<frame::AbstractProcessMember*>(this)));
    GENRPC_LOG(module, vdlDebugTrace, "Called.\n");
    tvClient.reset();
    mmClient.reset();
}

int ModelTvServiceAdapter::performSetupDone() {
    GENRPC_LOG(module, vdlDebugTrace, "Called.\n");
    int result = frame::AbstractApplication::performSetupDone();
    if (result < 0) {
        GENRPC_LOG(module, vdlDebugFailure, "Parent class performSetupDone() returned %d.\n", result);
        return result;
    }
    result = registerInterface(this, interfaceKey);
    if (result < 0) {
        GENRPC_LOG(module, vdlDebugFailure, "Unable to register interface: %d.\n", result);
        return result;
    }
    return 0;
}

int ModelTvServiceAdapter::performStarting() {
    GENRPC_LOG(module, vdlDebugTrace, "Called.\n");
    int result = frame::AbstractProcessMember::performStarting();
    if (result < 0) {
        GENRPC_LOG(module, vdlDebugFailure, "Parent class performStarting() returned %d.\n", result);
        return result;
    }
    // A service that cannot be found is reported, and the adapter starts without it.
    if (tvService == nullptr) {
        boost::shared_ptr<frame::Interface> reference;
        result = frame::Process::getInstance()->getInterfaceReference(reference, ServiceInterface::interfaceKey);
        if (result < 0) {
            GENRPC_LOG(module, vdlDebugFailure, "Unable to lookup tvservice-interface: %d.\n", result);
        } else {
            tvService = reference->get<ServiceInterface>();
            GENRPC_LOG(module, vdlDebugProgress, "tvservice-interface pointer = %p.\n", static_cast<void*>(tvService));
        }
    }
    if (mmService == nullptr) {
        boost::shared_ptr<frame::Interface> reference;
        result =
            frame::Process::getInstance()->getInterfaceReference(reference, mmservice::ServiceInterface::interfaceKey);
        if (result < 0) {
            GENRPC_LOG(module, vdlDebugFailure, "Unable to lookup mmservice-interface: %d.\n", result);
        } else {
            mmService = reference->get<mmservice::ServiceInterface>();
            GENRPC_LOG(module, vdlDebugProgress, "mmservice-interface pointer = %p.\n", static_cast<void*>(mmService));
        }
    }
    // Every start creates new client objects; after a stop and a start the proxies deliver to the old ones as well.
    if (mmService != nullptr) {
        mmClient = boost::make_shared<MmServiceClient>();
        mmService->addClient(mmClient);
    }
    if (tvService != nullptr) {
        tvClient = boost::make_shared<TvServiceClient>();
        tvService->addClient(tvClient);
        TvServiceClient* const client = tvClient.get();
        ResManager::getResMInstance()->registerInfocb([client](frame::MsgIds& ids,
                                                               const frame::TransportInfo& transport,
                                                               const std::vector<TvServiceInfo_t>& infos) {
            return client->tvServiceInfocb(ids, transport, infos);
        });
    }
    // The debug command, once per process however often the adapter starts.
    static ovRegister registrar(this);
    return 0;
}

int ModelTvServiceAdapter::performStopping() {
    GENRPC_LOG(module, vdlDebugTrace, "Called.\n");
    const int result = frame::AbstractProcessMember::performStopping();
    if (result < 0) {
        GENRPC_LOG(module, vdlDebugFailure, "Parent class performStopping() returned %d.\n", result);
        return result;
    }
    return 0;
}

// ---- clients and requests ----

int ModelTvServiceAdapter::addClient(boost::shared_ptr<ClientInterface> client) { return tvClient->addClient(client); }

int ModelTvServiceAdapter::removeClient(boost::shared_ptr<ClientInterface> client) {
    return tvClient->removeClient(client);
}

int ModelTvServiceAdapter::tvServiceReq(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                        const std::vector<TvServiceReq_t>& requests) {
    GENRPC_LOG(module, vdlDebugTrace, "Called.\n");
    return ResManager::getResMInstance()->tvServiceReq(ids, transport, requests);
}

// ---- requests that are passed on to the TV service; three write no log line ----

// begin generated: requests
int ModelTvServiceAdapter::tvServiceSwapWinReq(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                               const TvServiceSwapWinReq_t& request) {
    GENRPC_LOG(module, vdlDebugTrace, "Called.\n");
    return tvService->tvServiceSwapWinReq(ids, transport, request);
}

int ModelTvServiceAdapter::tvServiceStreamInfoReq(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                                  const TvServiceStreamInfoReq_t& request) {
    GENRPC_LOG(module, vdlDebugTrace, "Called.\n");
    return tvService->tvServiceStreamInfoReq(ids, transport, request);
}

int ModelTvServiceAdapter::tvServiceAudioReq(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                             const TvServiceAudioReq_t& request) {
    GENRPC_LOG(module, vdlDebugTrace, "Called.\n");
    return tvService->tvServiceAudioReq(ids, transport, request);
}

int ModelTvServiceAdapter::tvServiceSubtitleReq(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                                const TvServiceSubtitleReq_t& request) {
    GENRPC_LOG(module, vdlDebugTrace, "Called.\n");
    return tvService->tvServiceSubtitleReq(ids, transport, request);
}

int ModelTvServiceAdapter::tvServiceVideoReq(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                             const TvServiceVideoReq_t& request) {
    GENRPC_LOG(module, vdlDebugTrace, "Called.\n");
    return tvService->tvServiceVideoReq(ids, transport, request);
}

int ModelTvServiceAdapter::tvServiceTeletextReq(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                                const TvServiceTeletextReq_t& request) {
    GENRPC_LOG(module, vdlDebugTrace, "Called.\n");
    return tvService->tvServiceTeletextReq(ids, transport, request);
}

int ModelTvServiceAdapter::tvServiceInfoReq(frame::MsgIds& ids, const frame::TransportInfo& transport) {
    GENRPC_LOG(module, vdlDebugTrace, "Called.\n");
    return tvService->tvServiceInfoReq(ids, transport);
}

int ModelTvServiceAdapter::tvServiceAskReleaseReq(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                                  const TvServiceAskReleaseReq_t& request) {
    GENRPC_LOG(module, vdlDebugTrace, "Called.\n");
    return tvService->tvServiceAskReleaseReq(ids, transport, request);
}

int ModelTvServiceAdapter::tvServiceSendKeyReq(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                               const std::string& key) {
    GENRPC_LOG(module, vdlDebugTrace, "Called.\n");
    return tvService->tvServiceSendKeyReq(ids, transport, key);
}

int ModelTvServiceAdapter::tvServiceSListChangedInd(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                                    const TvServiceSListChangedInd_t& indication) {
    GENRPC_LOG(module, vdlDebugTrace, "Called.\n");
    return tvService->tvServiceSListChangedInd(ids, transport, indication);
}

int ModelTvServiceAdapter::tvServiceTryRunReq(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                              const TvServiceTryRunRequestParams_t& params) {
    GENRPC_LOG(module, vdlDebugTrace, "Called.\n");
    return tvService->tvServiceTryRunReq(ids, transport, params);
}

int ModelTvServiceAdapter::setParentalLockInfo(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                               const TvServiceParentalLockInfo_t& info) {
    GENRPC_LOG(module, vdlDebugTrace, "Called.\n");
    return tvService->setParentalLockInfo(ids, transport, info);
}

int ModelTvServiceAdapter::mtsAudioChangeReq(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                             MtsAudioTrack_t track) {
    GENRPC_LOG(module, vdlDebugTrace, "Called.\n");
    return tvService->mtsAudioChangeReq(ids, transport, track);
}

int ModelTvServiceAdapter::setCasService(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                         TvServiceCasServiceType_t type) {
    return tvService->setCasService(ids, transport, type);
}

int ModelTvServiceAdapter::requestPackagesReq(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                              reqeustOadType_t type, const std::string& packages) {
    return tvService->requestPackagesReq(ids, transport, type, packages);
}

int ModelTvServiceAdapter::tvServiceSourceChanged(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                                  const std::string& source) {
    return tvService->tvServiceSourceChanged(ids, transport, source);
}
// end generated

std::vector<BundleStatus> ModelTvServiceAdapter::bundles() const { return ResManager::getResMInstance()->bundles(); }

} // namespace tvservice

// ---- the library's entry points ----

extern "C" GENRPC_EXPORT void** CreateTvMmService() {
    GENRPC_LOG(genrpc::AdapterLog, vdlDebugTrace, "Called.\n");
    return genrpc::arrayOf<tvservice::Proxy, mmservice::Proxy, tvservice::ModelTvServiceAdapter>();
}

extern "C" GENRPC_EXPORT void** frameCreateApplicationArray() { return CreateTvMmService(); }
