#include "mmservice/mm-service.h"

#include <tvservice-adapter/service/handlers.h>
#include <tvservice-adapter/service/mm-uris.h>

#include <string>

namespace services {

void MmService::offer(host::MessageQueue& queue) {
    auto& offered = sender_.offer(queue, mmservice::serviceName, mmservice::messageSet());
    bind<mmservice::messages::MmServiceReq, &MmService::mmServiceReq>(offered, *this);
}

void MmService::mmServiceReq(std::uint64_t client, const std::vector<mmservice::MMServiceReq_t>& requests) {
    plays_.execute(requests, client,
                   {.check = [](const Terminal&, const std::string& uri) { return checkMmUri(uri); },
                    .source = [](const std::string& uri) { return media::Source{.uri = uri}; }});
}

} // namespace services
