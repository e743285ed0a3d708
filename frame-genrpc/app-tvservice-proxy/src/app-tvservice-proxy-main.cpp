#include "app-tvservice-proxy-main.h"

#include <tvservice/messages.h>

namespace tvservice {
namespace {

constexpr auto module = genrpc::TvProxyLog;
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

// The interface stays registered: whoever looked it up keeps the pointer for the life of the process anyway.
Proxy::~Proxy() {
    GENRPC_LOG(module, vdlDebugTrace, "Called.\n");
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
    TVSERVICE_NOTIFICATIONS(GENRPC_BIND)
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

TVSERVICE_REQUESTS(GENRPC_SENDER)
TVSERVICE_NOTIFICATIONS(GENRPC_HANDLER)

} // namespace tvservice

extern "C" GENRPC_EXPORT void** CreateTvServiceProxy() {
    GENRPC_LOG(genrpc::TvProxyLog, vdlDebugTrace, "Called.\n");
    return genrpc::arrayOf<tvservice::Proxy>();
}
