// The product's transport: the TV service's proxy on a message queue, and a client that it notifies.
#pragma once

#include "app-tvservice-proxy-main.h"
#include "timed-event.h"
#include "transport.h"

#include <host/message-queue.h>
#include <tvservice/client-base.h>

#include <vector>

namespace bench {

// The request of all cases: one live service on one terminal.
std::vector<tvservice::TvServiceReq_t> playRequest();

// The arguments of a notification with a text of that size.
std::vector<tvservice::TvServiceInfo_t> infosWith(std::size_t textBytes);

// The client of serveTvService.
class ProxyClient final : public Transport, private tvservice::ClientBase {
public:
    std::string name() const override { return "own"; }
    void connect() override;
    double roundTrip() override;
    double notifications(std::size_t count) override;
    double infos(std::size_t count, std::size_t textBytes) override;

private:
    double request(std::size_t count, const std::string& what);
    int tvServiceInfo(frame::MsgIds& ids, const frame::TransportInfo& transport,
                      const std::vector<tvservice::TvServiceInfo_t>& infos) override;
    int tvServiceTunerResult(frame::MsgIds& ids, const frame::TransportInfo& transport,
                             const tvservice::TvServiceTunerResult_t& result) override;

    TimedEvent notified_;
    std::size_t pending_ = 0; // messages not yet received
    const std::vector<tvservice::TvServiceReq_t> request_ = playRequest();
    tvservice::Proxy proxy_;
    std::unique_ptr<host::MessageQueue> queue_; // destroyed before the proxy, which is its listener
};

} // namespace bench
