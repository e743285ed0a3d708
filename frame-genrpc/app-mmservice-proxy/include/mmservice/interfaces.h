// The interface of the MM service (files, network streams and other media) for a process.
#pragma once

#include <mmservice/message-list.h>

#include <boost/shared_ptr.hpp>

namespace mmservice {

// Receives the MM service's answers. Called on the framework's receiving thread; the result is ignored.
class ClientInterface {
public:
    virtual ~ClientInterface() = default;
    // begin generated: notifications
    virtual int mmServiceInfo(frame::MsgIds& ids, const frame::TransportInfo& transport,
                              const std::vector<MMServiceInfo_t>& infos) = 0;
    // end generated
};

// The MM service's only request, registered under interfaceKey; clients as for the TV service. From any thread.
class ServiceInterface {
public:
    static constexpr const char* interfaceKey = "orvel.lm.interfaces.mmservice";

    virtual ~ServiceInterface() = default;
    // begin generated: requests
    virtual int mmServiceReq(frame::MsgIds& ids, const frame::TransportInfo& transport,
                             const std::vector<MMServiceReq_t>& requests) = 0;
    // end generated

    virtual int addClient(boost::shared_ptr<ClientInterface> client) = 0;
    virtual int removeClient(boost::shared_ptr<ClientInterface> client) = 0;
};

} // namespace mmservice
