// The client side of the connection to the TV service.
#pragma once

#include <genrpc/proxy.h>
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

    TVSERVICE_REQUESTS(GENRPC_OVERRIDE)
    int addClient(boost::shared_ptr<ClientInterface> client) override;
    int removeClient(boost::shared_ptr<ClientInterface> client) override;

    // Message handlers; the context is the proxy.
    TVSERVICE_NOTIFICATIONS(GENRPC_DECLARE_HANDLER)

private:
    genrpc::ClientList<ClientInterface> clients; // guarded by getMutex()
};

} // namespace tvservice

// One proxy in a null-terminated array; array and proxy are the caller's.
extern "C" void** CreateTvServiceProxy();
