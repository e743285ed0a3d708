// The client side of the connection to the MM service.
#pragma once

#include <genrpc/proxy.h>
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

    MMSERVICE_REQUESTS(GENRPC_OVERRIDE)
    int addClient(boost::shared_ptr<ClientInterface> client) override;
    int removeClient(boost::shared_ptr<ClientInterface> client) override;

    // Message handler; the context is the proxy.
    MMSERVICE_NOTIFICATIONS(GENRPC_DECLARE_HANDLER)

private:
    genrpc::ClientList<ClientInterface> clients; // guarded by getMutex()
};

} // namespace mmservice

// One proxy in a null-terminated array; array and proxy are the caller's.
extern "C" void** CreateMMServiceProxy();
