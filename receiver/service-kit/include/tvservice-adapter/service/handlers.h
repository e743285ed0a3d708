// Binds a service's handlers to its requests.
#pragma once

#include <frame/omq-io-module.h>
#include <tvservice-adapter/service/health.h>
#include <tvservice-adapter/service/log.h>

#include <cstdint>
#include <tuple>

namespace services {

// Logs each request of this kind and calls service.method(client, arguments...), on the receiving thread. client: the
// number of the connection that sent it. service must outlive the queue's receiving.
template <class Message, auto method, class Service> void bind(frame::OmqIOModule& channel, Service& service) {
    const frame::MessageHandler handler = [](const frame::MsgMeta&, const frame::TransportInfo& transport,
                                             const void* payload, void* context) {
        SERVICE_LOG(vdlDebugProgress, "client %llu: %s\n", static_cast<unsigned long long>(transport.connection),
                    Message::name);
        const Handling handling(Message::name);
        std::apply(
            [&](const auto&... args) { (static_cast<Service*>(context)->*method)(transport.connection, args...); },
            Message::Body::read(payload));
        return 0;
    };
    channel.registerMessageHandler(Message::meta, handler, &service, *Message::table());
}

} // namespace services
