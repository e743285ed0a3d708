// The MM service: carries out play and stop requests and answers them.
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

    // Must outlive the queue's receiving. Throws std::runtime_error when the endpoint cannot be had.
    void offer(host::MessageQueue& queue) {
        auto& offered = sender_.offer(queue, mmservice::serviceName, mmservice::messageSet());
        bind<mmservice::messages::MmServiceReq, &MmService::take>(offered, *this);
    }

    // How full the tables are, besides that of the terminals. From any thread.
    std::vector<TableCount> tables() const { return {answers_.delayed()}; }

private:
    void take(std::uint64_t client, const std::vector<mmservice::MMServiceReq_t>& requests) {
        const auto check = [](const Terminal&, const std::string& uri) { return checkMmUri(uri); };
        Evictions evictions([this] { return sender_.clients(); });
        answers_.give(carryOut<mmservice::MMServiceInfo_t>(requests, client, table_, check, &evictions), client);
    }

    TerminalTable& table_;
    Sender sender_;
    AnswerLine<mmservice::messages::MmServiceInfo> answers_;
};

} // namespace services
