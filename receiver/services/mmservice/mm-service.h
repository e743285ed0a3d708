// The MM service: executes play and stop requests and answers them.
#pragma once

#include "common/answer-line.h"
#include "common/handlers.h"
#include "mmservice/uri-check.h"

#include <mmservice/messages.h>

#include <cstdint>
#include <vector>

namespace services {

class MmService {
public:
    MmService(TerminalTable& table, FaultSwitches& faults) : table_(table), answers_(sender_, faults) {}

    // The service must outlive the queue's receiving. Throws std::runtime_error when the endpoint is not available.
    void offer(host::MessageQueue& queue) {
        auto& offered = sender_.offer(queue, mmservice::serviceName, mmservice::messageSet());
        bind<mmservice::messages::MmServiceReq, &MmService::take>(offered, *this);
    }

    // How full the tables other than the terminals are. From any thread.
    std::vector<TableCount> tables() const { return {answers_.delayed()}; }

private:
    void take(std::uint64_t client, const std::vector<mmservice::MMServiceReq_t>& requests) {
        const auto check = [](const Terminal&, const std::string& uri) { return checkMmUri(uri); };
        Evictions evictions([this] { return sender_.clients(); });
        answers_.schedule(execute<mmservice::MMServiceInfo_t>(requests, client, table_, check, &evictions), client);
    }

    TerminalTable& table_;
    Sender sender_;
    AnswerLine<mmservice::messages::MmServiceInfo> answers_;
};

} // namespace services
