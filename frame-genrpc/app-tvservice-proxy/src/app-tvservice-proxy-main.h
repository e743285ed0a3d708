// The client side of the connection to the TV service.
#pragma once

#include <frame/abstract-marshalling-impl.h>
#include <genrpc/client-list.h>
#include <tvservice/interfaces.h>

namespace tvservice {

// A framework member that sends each request as one message and delivers each notification to its clients. Requests may
// come from any thread; notifications are delivered on the module's receiving thread.
class Proxy : public frame::AbstractMarshallingImpl, public ServiceInterface {
public:
    Proxy();
    ~Proxy() override;

    int performSetupDone() override;
    int performStarting() override;
    int performStopping() override;
    int registerMessageHandlers() override;

    int tvServiceReq(frame::MsgIds& ids, const frame::TransportInfo& transport,
                     const std::vector<TvServiceReq_t>& requests) override;
    int addClient(boost::shared_ptr<ClientInterface> client) override;
    int removeClient(boost::shared_ptr<ClientInterface> client) override;

    // Message handlers; the context is the proxy.
    static int callTvServiceInfo(const frame::MsgMeta& meta, const frame::TransportInfo& transport, const void* payload,
                                 void* context);

private:
    genrpc::ClientList<ClientInterface> clients; // guarded by getMutex()
};

} // namespace tvservice

// One proxy in a null-terminated array; array and proxy are the caller's.
extern "C" void** CreateTvServiceProxy();
