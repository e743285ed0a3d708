#include "app-mmservice-proxy-main.h"

#include <mmservice/messages.h>

namespace mmservice {
namespace {

constexpr auto module = genrpc::MmProxyLog;

} // namespace

Proxy::Proxy()
    : genrpc::Proxy<ServiceInterface, ClientInterface>({.serviceName = serviceName,
                                                        .messages = messageSet(),
                                                        .module = module,
                                                        .file = __FILE_NAME__,
                                                        .takesInterfaceBack = true}) {}

int Proxy::registerMessageHandlers() {
    GENRPC_LOG(module, vdlDebugTrace, "Called.\n");
    // begin generated: bindings
    genrpc::bind<messages::MmServiceInfo>(*this, callMmServiceInfo);
    // end generated
    return 0;
}

// ---- requests ----

// begin generated: senders
int Proxy::mmServiceReq(frame::MsgIds& ids, const frame::TransportInfo&, const std::vector<MMServiceReq_t>& requests) {
    GENRPC_LOG(module, vdlDebugTrace, "Called.\n");
    return send<messages::MmServiceReq>(ids, requests);
}
// end generated

// ---- notifications; the misspelt log text is intended and must stay ----

// begin generated: handlers
int Proxy::callMmServiceInfo(const frame::MsgMeta&, const frame::TransportInfo& transport, const void* payload,
                             void* context) {
    GENRPC_LOG(module, vdlDebugTrace, "Eneter\n");
    auto& proxy = *static_cast<Proxy*>(context);
    proxy.deliver<messages::MmServiceInfo>(&ClientInterface::mmServiceInfo, transport, payload);
    GENRPC_LOG(module, vdlDebugTrace, "Exit\n");
    return 0;
}
// end generated

} // namespace mmservice

extern "C" GENRPC_EXPORT void** CreateMMServiceProxy() {
    GENRPC_LOG(genrpc::MmProxyLog, vdlDebugTrace, "Called.\n");
    return genrpc::arrayOf<mmservice::Proxy>();
}
