// The TV service as a process sees it: requests go through ServiceInterface, notifications come to ClientInterface.
//
// Applications do not call the service directly; they use the adapter, which keeps the terminals of both services
// apart.
#pragma once

#include <frame/message.h>
#include <tvservice/core-records.h>

#include <boost/shared_ptr.hpp>
#include <vector>

namespace tvservice {

// Takes the TV service's notifications. Called on the framework's receiving thread; the results are ignored.
class ClientInterface {
public:
    virtual ~ClientInterface() = default;
    virtual int tvServiceInfo(frame::MsgIds& ids, const frame::TransportInfo& transport,
                              const std::vector<TvServiceInfo_t>& infos) = 0;
};

// The TV service's requests, registered under interfaceKey. Every request is sent without waiting and answers 0; what
// becomes of it comes as notifications. From any thread.
class ServiceInterface {
public:
    static constexpr const char* interfaceKey = "orvel.lm.interfaces.tvservice";

    virtual ~ServiceInterface() = default;
    virtual int tvServiceReq(frame::MsgIds& ids, const frame::TransportInfo& transport,
                             const std::vector<TvServiceReq_t>& requests) = 0;
    // Clients are named by the object they are, whichever pointer holds it. addClient: 0, or -17 for a known client;
    // removeClient: 0, or -2 for an unknown one. A client that is removed while a notification is under way may still
    // get that one.
    virtual int addClient(boost::shared_ptr<ClientInterface> client) = 0;
    virtual int removeClient(boost::shared_ptr<ClientInterface> client) = 0;
};

} // namespace tvservice
