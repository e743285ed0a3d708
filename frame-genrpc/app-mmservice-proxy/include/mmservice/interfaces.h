// The MM service (files, network streams and other media) as a process sees it.
#pragma once

#include <frame/message.h>
#include <mmservice/records.h>

#include <boost/shared_ptr.hpp>
#include <vector>

namespace mmservice {

// Takes the MM service's answers. Called on the framework's receiving thread; the result is ignored.
class ClientInterface {
public:
    virtual ~ClientInterface() = default;
    virtual int mmServiceInfo(frame::MsgIds& ids, const frame::TransportInfo& transport,
                              const std::vector<MMServiceInfo_t>& infos) = 0;
};

// The MM service's one request, registered under interfaceKey; clients as with the TV service. From any thread.
class ServiceInterface {
public:
    static constexpr const char* interfaceKey = "orvel.lm.interfaces.mmservice";

    virtual ~ServiceInterface() = default;
    virtual int mmServiceReq(frame::MsgIds& ids, const frame::TransportInfo& transport,
                             const std::vector<MMServiceReq_t>& requests) = 0;
    virtual int addClient(boost::shared_ptr<ClientInterface> client) = 0;
    virtual int removeClient(boost::shared_ptr<ClientInterface> client) = 0;
};

} // namespace mmservice
