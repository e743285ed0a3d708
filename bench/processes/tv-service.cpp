#include "tv-service.h"

#include "proxy-client.h"
#include "timed-event.h"

#include <host/message-queue.h>
#include <mmservice/messages.h>
#include <tvservice-adapter/service/sender.h>
#include <tvservice/messages.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

namespace bench {
namespace {

namespace messages = tvservice::messages;

class TvService {
public:
    TvService() {
        mm_.offer(queue_, mmservice::serviceName, mmservice::messageSet());
        frame::OmqIOModule& channel = tv_.offer(queue_, tvservice::serviceName, tvservice::messageSet());
        bind<messages::TvServiceReq>(channel, onPlay);
        bind<messages::TvServiceSendKeyReq>(channel, onSendKey);
        queue_.start();
    }

    // Sends the requested notifications, outside the queue's thread: services notify from their own threads.
    [[noreturn]] void sendNotifications() {
        for (;;) {
            requested_.wait();
            if (textBytes_ > 0) {
                const auto infos = infosWith(textBytes_);
                for (std::size_t i = 0; i < count_; ++i) tv_.to<messages::TvServiceInfo>(client_, infos);
                continue;
            }
            const tvservice::TvServiceTunerResult_t result{1, 0, {2, 1}, 78, 96};
            for (std::size_t i = 0; i < count_; ++i) tv_.to<messages::TvServiceTunerResult>(client_, result);
        }
    }

private:
    template <class Message> void bind(frame::OmqIOModule& channel, frame::MessageHandler handler) {
        channel.registerMessageHandler(Message::meta, handler, this, *Message::table());
    }

    static int onPlay(const frame::MsgMeta&, const frame::TransportInfo& transport, const void* payload,
                      void* context) {
        const auto [requests] = messages::TvServiceReq::Body::read(payload);
        std::vector<tvservice::TvServiceInfo_t> infos;
        infos.reserve(requests.size());
        for (const auto& request : requests)
            infos.push_back({request.terminal, 0, request.uri, request.uuid, {}, request.reqId});
        return static_cast<TvService*>(context)->tv_.to<messages::TvServiceInfo>(transport.connection, infos);
    }
    static int onSendKey(const frame::MsgMeta&, const frame::TransportInfo& transport, const void* payload,
                         void* context) {
        auto& service = *static_cast<TvService*>(context);
        service.client_ = transport.connection;
        const auto [text] = messages::TvServiceSendKeyReq::Body::read(payload);
        std::size_t end = 0;
        service.count_ = std::stoul(text, &end);
        service.textBytes_ = end < text.size() ? std::stoul(text.substr(end)) : 0;
        service.requested_.post();
        return 0;
    }

    // Notifications are sent faster than they are received, and none may be refused.
    static host::QueueLimits limits() {
        host::QueueLimits limits;
        limits.messages = 1U << 22;
        return limits;
    }

    host::MessageQueue queue_{limits()};
    services::Sender tv_, mm_;
    TimedEvent requested_;
    std::size_t count_ = 0, textBytes_ = 0;
    std::uint64_t client_ = 0;
};

} // namespace

void serveTvService(const std::function<void()>& ready) {
    TvService service;
    ready();
    service.sendNotifications();
}

} // namespace bench
