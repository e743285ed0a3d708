// The adapter's two client objects: through them everything that the services send comes back.
//
// Notifications arrive on the framework's receiving thread, finished answers on the thread that brought the last of
// them, registrations from anywhere; all serialise on clientMutex, which is held while clients are called. A client
// must therefore not register or remove clients from inside a notification.
#pragma once

#include <genrpc/client-list.h>
#include <mmservice/interfaces.h>
#include <tvservice/interfaces.h>

#include <mutex>

namespace tvservice {

// The TV service's notification sink and the registry of the adapter's clients.
class TvServiceClient : public ClientInterface {
public:
    ~TvServiceClient() override;

    // The answer to play and stop requests: to the resource manager, which decides what reaches the clients.
    TVSERVICE_ANSWER(GENRPC_OVERRIDE)
    // All other notifications: to every client, unchanged.
    TVSERVICE_NEWS(GENRPC_OVERRIDE)

    // What the resource manager has for the clients; delivered to each as tvServiceInfo.
    virtual int tvServiceInfocb(frame::MsgIds& ids, const frame::TransportInfo& transport,
                                const std::vector<TvServiceInfo_t>& infos);
    // 0, or -1 for a known client, an unknown one.
    virtual int addClient(boost::shared_ptr<ClientInterface> client);
    virtual int removeClient(boost::shared_ptr<ClientInterface> client);

private:
    genrpc::ClientList<ClientInterface> clients; // guarded by clientMutex
    std::mutex clientMutex;
};

// The MM service's notification sink. Its registry is kept like the other one's; nothing is ever delivered to it.
class MmServiceClient : public mmservice::ClientInterface {
public:
    ~MmServiceClient() override;

    // The MM service's answer: converted, to the resource manager.
    int mmServiceInfo(frame::MsgIds& ids, const frame::TransportInfo& transport,
                      const std::vector<mmservice::MMServiceInfo_t>& infos) override;

    virtual int addClient(boost::shared_ptr<mmservice::ClientInterface> client);
    virtual int removeClient(boost::shared_ptr<mmservice::ClientInterface> client);

private:
    genrpc::ClientList<mmservice::ClientInterface> clients; // guarded by clientMutex
    std::mutex clientMutex;
};

} // namespace tvservice
