// The client list of every registry in the system: in order of registration, each object once. Callers must hold the
// list's lock, and choose the results for a duplicate and for an unknown client.
#pragma once

#include <genrpc/log.h>

#include <algorithm>
#include <boost/shared_ptr.hpp>
#include <vector>

namespace genrpc {

template <class Client> using ClientList = std::vector<boost::shared_ptr<Client>>;

// The log module and the source position of a registry's log lines.
struct ClientListLog {
    std::uint32_t module;
    Here here;
};

template <class Client> auto findClient(ClientList<Client>& clients, const boost::shared_ptr<Client>& client) {
    return std::find_if(clients.begin(), clients.end(), [&](const auto& known) { return known.get() == client.get(); });
}

template <class Client>
int addClient(ClientList<Client>& clients, const boost::shared_ptr<Client>& client, int duplicate, ClientListLog log) {
    if (findClient(clients, client) != clients.end()) {
        GENRPC_LOG_AT(log.here, log.module, vdlDebugWarning, "Client already exists, %d total.\n",
                      static_cast<int>(clients.size()));
        return duplicate;
    }
    clients.push_back(client);
    GENRPC_LOG_AT(log.here, log.module, vdlDebugProgress, "success, %d total.\n", static_cast<int>(clients.size()));
    return 0;
}

template <class Client>
int removeClient(ClientList<Client>& clients, const boost::shared_ptr<Client>& client, int unknown, ClientListLog log) {
    const auto place = findClient(clients, client);
    if (place == clients.end()) {
        GENRPC_LOG_AT(log.here, log.module, vdlDebugWarning, "client not found (of %d known ones)\n",
                      static_cast<int>(clients.size()));
        return unknown;
    }
    clients.erase(place);
    GENRPC_LOG_AT(log.here, log.module, vdlDebugProgress, "success, %d remaining.\n", static_cast<int>(clients.size()));
    return 0;
}

} // namespace genrpc
