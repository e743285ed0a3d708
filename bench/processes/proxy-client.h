// The product's transport: the TV service's proxy on a message queue, and a client that it notifies.
#pragma once

#include "app-tvservice-proxy-main.h"
#include "notified.h"
#include "transport.h"

#include <host/message-queue.h>
#include <tvservice/client-base.h>

#include <vector>

namespace bench {

// What is asked for in all cases: one live service on one terminal.
std::vector<tvservice::TvServiceReq_t> playRequest();

// What a notification with a text of so many bytes tells.
std::vector<tvservice::TvServiceInfo_t> infosWith(std::size_t textBytes);

// Its server is serveTvService.
class ProxyClient final : public Transport, private tvservice::ClientBase {
public:
    std::string name() const override { return "own"; }
    void connect() override;
    double roundTrip() override;
    double notifications(std::size_t count) override;
    double infos(std::size_t count, std::size_t textBytes) override;

private:
    double ask(std::size_t count, const std::string& what);
    int tvServiceInfo(frame::MsgIds& ids, const frame::TransportInfo& transport,
                      const std::vector<tvservice::TvServiceInfo_t>& infos) override;
    int tvServiceTunerResult(frame::MsgIds& ids, const frame::TransportInfo& transport,
                             const tvservice::TvServiceTunerResult_t& result) override;

    Notified notified_;
    std::size_t awaited_ = 0; // messages that have not come yet
    const std::vector<tvservice::TvServiceReq_t> request_ = playRequest();
    tvservice::Proxy proxy_;
    std::unique_ptr<host::MessageQueue> queue_; // ends before the proxy, which it knows as listener
};

} // namespace bench
