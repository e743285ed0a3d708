// The TV service as a process sees it: requests go through ServiceInterface, notifications come to ClientInterface.
//
// Applications do not call the service directly; they use the adapter, which keeps the terminals of both services
// apart.
#pragma once

#include <tvservice/message-list.h>

#include <boost/shared_ptr.hpp>

namespace tvservice {

// Takes the TV service's notifications: one method for each, in the order of TVSERVICE_NOTIFICATIONS, such as
//
//     int tvServiceAudioInfo(frame::MsgIds& ids, const frame::TransportInfo& transport, const TvServiceAudioInfo_t&
//     info)
//
// Called on the framework's receiving thread; the results are ignored. docs/messages.md lists them all.
class ClientInterface {
public:
    virtual ~ClientInterface() = default;
    TVSERVICE_NOTIFICATIONS(GENRPC_PURE_METHOD)
};

// The TV service's requests, registered under interfaceKey: one method for each, in the order of TVSERVICE_REQUESTS,
// such as
//
//     int tvServiceAudioReq(frame::MsgIds& ids, const frame::TransportInfo& transport,
//                           const TvServiceAudioReq_t& request)
//
// Every request is sent without waiting and answers 0; what becomes of it comes as notifications. From any thread.
class ServiceInterface {
public:
    static constexpr const char* interfaceKey = "orvel.lm.interfaces.tvservice";

    virtual ~ServiceInterface() = default;
    TVSERVICE_REQUESTS(GENRPC_PURE_METHOD)
    // Clients are named by the object they are, whichever pointer holds it. addClient: 0, or -17 for a known client;
    // removeClient: 0, or -2 for an unknown one. A client that is removed while a notification is under way may still
    // get that one.
    virtual int addClient(boost::shared_ptr<ClientInterface> client) = 0;
    virtual int removeClient(boost::shared_ptr<ClientInterface> client) = 0;
};

} // namespace tvservice
