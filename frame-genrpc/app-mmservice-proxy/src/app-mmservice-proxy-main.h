// The client side of the connection to the MM service.
#pragma once

#include <frame/abstract-marshalling-impl.h>
#include <genrpc/client-list.h>
#include <mmservice/interfaces.h>

namespace mmservice {

// A framework member that sends the request as one message and delivers the answers to its clients. Requests may
// come from any thread; notifications are delivered on the module's receiving thread.
class Proxy : public frame::AbstractMarshallingImpl, public ServiceInterface {
public:
    Proxy();
    ~Proxy() override;

    int performSetupDone() override;
    int performStarting() override;
    int performStopping() override;
    int registerMessageHandlers() override;

    int mmServiceReq(frame::MsgIds& ids, const frame::TransportInfo& transport,
                     const std::vector<MMServiceReq_t>& requests) override;
    int addClient(boost::shared_ptr<ClientInterface> client) override;
    int removeClient(boost::shared_ptr<ClientInterface> client) override;

    // Message handler; the context is the proxy.
    static int callMmServiceInfo(const frame::MsgMeta& meta, const frame::TransportInfo& transport, const void* payload,
                                 void* context);

private:
    genrpc::ClientList<ClientInterface> clients; // guarded by getMutex()
};

} // namespace mmservice

// One proxy in a null-terminated array; array and proxy are the caller's.
extern "C" void** CreateMMServiceProxy();
