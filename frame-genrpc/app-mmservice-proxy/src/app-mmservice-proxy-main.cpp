#include "app-mmservice-proxy-main.h"

#include <mmservice/messages.h>

namespace mmservice {
namespace {

constexpr auto module = genrpc::MmProxyLog;
constexpr std::size_t sendBufferBytes = 16384;

} // namespace

Proxy::Proxy() : frame::AbstractMarshallingImpl(CouplingMode::Default) {
    GENRPC_LOG(module, vdlDebugTrace, "Called.\n");
    setServiceName(serviceName);
    setSendBufferSize(sendBufferBytes);
    setMessageSet(messageSet());
    GENRPC_LOG(module, vdlDebugProgress, "the buffer size for %s is %d.\n", serviceName,
               static_cast<int>(sendBufferBytes));
}

Proxy::~Proxy() {
    GENRPC_LOG(module, vdlDebugTrace, "Called.\n");
    unregisterInterface(static_cast<ServiceInterface*>(this));
    for (auto& client : clients) client.reset();
}

int Proxy::performSetupDone() {
    GENRPC_LOG(module, vdlDebugTrace, "Called.\n");
    int result = frame::AbstractMarshallingImpl::performSetupDone();
    if (result < 0) {
        GENRPC_LOG(module, vdlDebugFailure, "Parent class performSetupDone() returned %d.\n", result);
        return result;
    }
    result = registerInterface(static_cast<ServiceInterface*>(this), interfaceKey);
    if (result < 0) {
        GENRPC_LOG(module, vdlDebugFailure, "Unable to register interface: %d.\n", result);
        return result;
    }
    return 0;
}

int Proxy::performStarting() {
    GENRPC_LOG(module, vdlDebugTrace, "Called.\n");
    const int result = frame::AbstractMarshallingImpl::performStarting();
    if (result < 0) {
        GENRPC_LOG(module, vdlDebugFailure, "Parent class performStarting() returned %d.\n", result);
        return result;
    }
    return 0;
}

int Proxy::performStopping() {
    GENRPC_LOG(module, vdlDebugTrace, "Called.\n");
    const int result = frame::AbstractMarshallingImpl::performStopping();
    if (result < 0) {
        GENRPC_LOG(module, vdlDebugFailure, "Parent class performStopping() returned %d.\n", result);
        return result;
    }
    return 0;
}

int Proxy::registerMessageHandlers() {
    GENRPC_LOG(module, vdlDebugTrace, "Called.\n");
    MMSERVICE_NOTIFICATIONS(GENRPC_BIND)
    return 0;
}

int Proxy::addClient(boost::shared_ptr<ClientInterface> client) {
    ltGuard guard(getMutex());
    return genrpc::addClient(clients, client, -17, {module, GENRPC_HERE});
}

int Proxy::removeClient(boost::shared_ptr<ClientInterface> client) {
    ltGuard guard(getMutex());
    return genrpc::removeClient(clients, client, -2, {module, GENRPC_HERE});
}

MMSERVICE_REQUESTS(GENRPC_SENDER)
MMSERVICE_NOTIFICATIONS(GENRPC_HANDLER)

} // namespace mmservice

extern "C" GENRPC_EXPORT void** CreateMMServiceProxy() {
    GENRPC_LOG(genrpc::MmProxyLog, vdlDebugTrace, "Called.\n");
    return genrpc::arrayOf<mmservice::Proxy>();
}
