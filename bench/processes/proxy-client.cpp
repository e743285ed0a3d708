#include "proxy-client.h"

#include "common/interleaved.h"

#include <host/marshaller.h>
#include <tvservice/messages.h>

#include <boost/make_shared.hpp>
#include <thread>

namespace bench {
namespace {

constexpr std::size_t frameHeaderBytes = 32;

template <class Message, class... Args> std::size_t wireBytes(const Args&... args) {
    const auto region = genrpc::FlatRegion::create(16384);
    host::Bytes wire;
    host::marshal(host::planOf(*Message::table()), Message::Body::build(*region, args...), wire,
                  host::maximumMessageBytes);
    return frameHeaderBytes + wire.size();
}

} // namespace

std::vector<tvservice::TvServiceReq_t> playRequest() {
    tvservice::TvServiceReq_t request;
    request.terminal = {2, 1};
    request.intParam1 = 1;
    request.intParam3 = 90000;
    request.uri = "dvb://8468.1537.28225/present?network=9018&transport=4102";
    request.uuid = "3f0c51de-9f4b-4f1d-8d5e-0d6c5d1f7a20";
    request.strParam2 = "extin";
    request.strParamList = {"main", "hdmi-1"};
    request.intParam4 = 7;
    return {request};
}

std::vector<tvservice::TvServiceInfo_t> infosWith(std::size_t textBytes) {
    tvservice::TvServiceInfo_t info;
    info.uri.assign(textBytes, 't');
    return {info};
}

Load load() {
    static const Load bytes = [] {
        auto requests = playRequest();
        requests[0].reqId = "123";
        const std::vector<tvservice::TvServiceInfo_t> infos{
            {requests[0].terminal, 0, requests[0].uri, requests[0].uuid, {}, requests[0].reqId}};
        return Load{wireBytes<tvservice::messages::TvServiceReq>(requests),
                    wireBytes<tvservice::messages::TvServiceInfo>(infos)};
    }();
    return bytes;
}

std::size_t infoBytes(std::size_t textBytes) {
    return wireBytes<tvservice::messages::TvServiceInfo>(infosWith(textBytes));
}

void ProxyClient::connect() {
    queue_ = std::make_unique<host::MessageQueue>();
    host::QueueChannel& channel =
        queue_->connectTo(proxy_.getServiceName(), proxy_.getMessageSet(), proxy_.getSendBufferSize(), &proxy_);
    proxy_.setOmqIOModule(&channel);
    proxy_.registerMessageHandlers();
    proxy_.addClient(boost::shared_ptr<tvservice::ClientInterface>(boost::shared_ptr<void>(), this));
    queue_->open(channel);
    queue_->start();
    while (!queue_->statistics().at(0).connected) std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

double ProxyClient::roundTrip() {
    frame::MsgIds ids;
    pending_ = 1;
    const auto start = Clock::now();
    proxy_.tvServiceReq(ids, {}, request_);
    return nanoseconds(notified_.wait() - start);
}

double ProxyClient::notifications(std::size_t count) { return request(count, std::to_string(count)); }

double ProxyClient::infos(std::size_t count, std::size_t textBytes) {
    return request(count, std::to_string(count) + " " + std::to_string(textBytes));
}

double ProxyClient::request(std::size_t count, const std::string& what) {
    frame::MsgIds ids;
    pending_ = count;
    const auto start = Clock::now();
    proxy_.tvServiceSendKeyReq(ids, {}, what);
    return nanoseconds(notified_.wait() - start);
}

int ProxyClient::tvServiceInfo(frame::MsgIds&, const frame::TransportInfo&,
                               const std::vector<tvservice::TvServiceInfo_t>&) {
    if (--pending_ == 0) notified_.post();
    return 0;
}

int ProxyClient::tvServiceTunerResult(frame::MsgIds&, const frame::TransportInfo&,
                                      const tvservice::TvServiceTunerResult_t&) {
    if (--pending_ == 0) notified_.post();
    return 0;
}

} // namespace bench
