// The MM service: plays files, network streams and what other devices cast.
#pragma once

#include <mmservice/messages.h>
#include <tvservice-adapter/service/service.h>

#include <cstdint>
#include <media/plays.h>
#include <vector>

namespace services {

class MmService final : public Service {
public:
    MmService(TerminalTable& table, FaultSwitches& faults, media::Engine& engine)
        : plays_(table, faults, sender_, engine) {}

    void offer(host::MessageQueue& queue) override;
    std::vector<TableCount> tables() const override { return {plays_.delayed()}; }

private:
    void mmServiceReq(std::uint64_t client, const std::vector<mmservice::MMServiceReq_t>& requests);

    Sender sender_;
    media::Plays<mmservice::messages::MmServiceInfo> plays_;
};

} // namespace services
