// The client side of the connection to the MM service.
#pragma once

#include <genrpc/proxy.h>
#include <mmservice/interfaces.h>

namespace mmservice {

// A framework member that sends the request as one message and delivers the answers to its clients. Requests may
// come from any thread; notifications are delivered on the module's receiving thread.
class Proxy : public genrpc::Proxy<ServiceInterface, ClientInterface> {
public:
    Proxy();

    int registerMessageHandlers() override;

    // begin generated: senders
    int mmServiceReq(frame::MsgIds& ids, const frame::TransportInfo& transport,
                     const std::vector<MMServiceReq_t>& requests) override;
    // end generated

    // Message handlers; the context is the proxy.
    // begin generated: handlers
    static int callMmServiceInfo(const frame::MsgMeta& meta, const frame::TransportInfo& transport, const void* payload,
                                 void* context);
    // end generated
};

} // namespace mmservice

// Creates one proxy in a null-terminated array; the caller owns both.
extern "C" void** CreateMMServiceProxy();
